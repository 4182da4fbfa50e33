#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "dds_support.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/IDDSSubcriber.h"

namespace dds_test {

/// A document with one domain of that name and nothing else.
inline Json::Value domainDocument(const std::string& name = "host", const std::string& url = "",
                                  std::uint32_t id = kDomain) {
  Json::Value domain(Json::objectValue);
  domain["name"] = name;
  domain["domain"] = id;
  domain["url"] = url;
  Json::Value document(Json::objectValue);
  document["domain"].append(domain);
  return document;
}

/// A publishing side with a factory of its own.
class Peer {
 public:
  explicit Peer(const std::string& topic, bool reliable = true)
      : factory_(Pexal::PDBus::IDDSFactory::create()) {
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
    return eventually([&] { return writer_.matched_subscriptions() == readers; });
  }

 private:
  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  dds::pub::DataWriter<Numbered> writer_ = dds::core::null;
};

}  // namespace dds_test
