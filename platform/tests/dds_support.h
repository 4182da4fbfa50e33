#pragma once

#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "DdsTest.h"
#include "pdbus/IDDSFactory.h"
#include "test_support.h"

DDS_REGISTER_TYPE(dds_test_Numbered, dds_test_Numbered_desc);
DDS_REGISTER_TYPE(dds_test_Stranger, dds_test_Stranger_desc);

namespace platform_test {

using Numbered = dds_test_Numbered;
using Stranger = dds_test_Stranger;
using Pexal::PDBus::IDDSFactory;

constexpr std::uint32_t kDomain = 42;

inline Numbered numbered(std::uint64_t number) {
  Numbered sample{};
  sample.number = number;
  return sample;
}

/// A document with one domain of that name and nothing else.
inline Json::Value domainDocument(const std::string& name = "host", const std::string& url = "",
                                  std::uint32_t id = kDomain) {
  Json::Value document = json(R"({"domain": [{}]})");
  document["domain"][0]["name"] = name;
  document["domain"][0]["domain"] = id;
  document["domain"][0]["url"] = url;
  return document;
}

/// What one participant's context loses of what it sends, and for how long it is believed to live
/// when it says nothing.
struct Wire {
  int lossPerMille = 0;
  int leaseMs = 10'000;
};

/// A DDS profile on loopback. libddsc has one domain object per number and process; with a number
/// of its own but one common number on the wire, a context talks to the others of its process as if
/// it were a process of its own.
inline std::string profile(std::uint32_t domain, Wire wire = {}) {
  return "<CycloneDDS><Domain Id=\"" + std::to_string(domain) +
         "\"><General><Interfaces><NetworkInterface name=\"lo\" multicast=\"true\"/></Interfaces>"
         "<AllowMulticast>true</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize></General>"
         "<Discovery><ExternalDomainId>42</ExternalDomainId><LeaseDuration>" +
         std::to_string(wire.leaseMs) + "ms</LeaseDuration></Discovery>" +
         "<Internal><Test><XmitLossiness>" + std::to_string(wire.lossPerMille) +
         "</XmitLossiness></Test></Internal></Domain></CycloneDDS>";
}

/// A context of its own, an application or a robot: domain "host", an RPC client and, when given,
/// an event bus of "robotServer".
class Node {
 public:
  explicit Node(std::uint32_t domain, Wire wire = {}, const std::string& bus = {})
      : factory(IDDSFactory::create()) {
    Json::Value document = domainDocument("host", profile(domain, wire), domain);
    document["client"] = json(R"([{"server": "robotServer", "domain": "host"}])");
    if (!bus.empty()) document["eventBus"].append(json(bus));
    EXPECT_TRUE(factory->initial(document));
  }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  ~Node() { factory->shutdown(); }

  std::shared_ptr<IDDSFactory> factory;
};

/// A publishing side with a factory of its own.
class Peer {
 public:
  explicit Peer(const std::string& topic, bool reliable = true) {
    EXPECT_TRUE(factory_->initial(domainDocument()));
    using namespace dds::core::policy;
    const auto participant = factory_->participant("host");
    dds::pub::qos::DataWriterQos qos;
    qos << (reliable ? Reliability::Reliable() : Reliability::BestEffort())
        << History::KeepLast(1000) << Durability::TransientLocal();
    writer_ = {dds::pub::Publisher(participant), dds::topic::Topic<Numbered>(participant, topic),
               qos};
  }
  ~Peer() { factory_->shutdown(); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void write(std::uint64_t number) { writer_.write(numbered(number)); }
  [[nodiscard]] bool matched(std::uint32_t readers = 1) const {
    return waitUntil([&] { return writer_.matched_subscriptions() == readers; });
  }

 private:
  std::shared_ptr<IDDSFactory> factory_ = IDDSFactory::create();
  dds::pub::DataWriter<Numbered> writer_ = dds::core::null;
};

}  // namespace platform_test
