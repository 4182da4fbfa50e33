#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "dds_support.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/Utils.h"
#include "pdbus/IDDSFactory.h"

namespace pdbus_test {

using dds_test::eventually;
using Pexal::PBase::CTime;
using Pexal::PDBus::IDDSFactory;

/// A DDS profile on loopback. libddsc has one domain object per number and process; with a number
/// of its own but one common number on the wire, a context talks to the others of its process as if
/// it were a process of its own. `lossPerMille` of what it sends is lost.
inline std::string profile(std::uint32_t domain, int lossPerMille = 0) {
  return "<CycloneDDS><Domain Id=\"" + std::to_string(domain) +
         "\"><General><Interfaces><NetworkInterface name=\"lo\" multicast=\"true\"/></Interfaces>"
         "<AllowMulticast>true</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize></General>"
         "<Discovery><ExternalDomainId>42</ExternalDomainId></Discovery>"
         "<Internal><Test><XmitLossiness>" +
         std::to_string(lossPerMille) + "</XmitLossiness></Test></Internal></Domain></CycloneDDS>";
}

inline Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Pexal::Utils::stringToJson(text, value)) << text;
  return value;
}

/// The document of a context on domain "host" with an RPC client and an event bus of "robotServer".
inline Json::Value document(std::uint32_t domain, int lossPerMille, const std::string& bus) {
  Json::Value result = json(
      R"({"domain": [{"name": "host"}], "client": [{"server": "robotServer", "domain": "host"}]})");
  result["domain"][0]["domain"] = domain;
  result["domain"][0]["url"] = profile(domain, lossPerMille);
  if (!bus.empty()) result["eventBus"].append(json(bus));
  return result;
}

/// A context of its own: an application or a robot.
class Node {
 public:
  explicit Node(std::uint32_t domain, int lossPerMille = 0, const std::string& bus = {})
      : factory(IDDSFactory::create()) {
    EXPECT_TRUE(factory->initial(document(domain, lossPerMille, bus)));
  }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  ~Node() { factory->shutdown(); }

  std::shared_ptr<IDDSFactory> factory;
};

/// One libddsc entity of a scripted peer.
class RawEntity {
 public:
  explicit RawEntity(dds_entity_t handle) : handle_(handle) { EXPECT_GT(handle, 0); }
  RawEntity(RawEntity&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  RawEntity& operator=(RawEntity&&) = delete;
  ~RawEntity() { remove(); }
  void remove() {
    if (handle_ > 0) dds_delete(std::exchange(handle_, 0));
  }
  operator dds_entity_t() const { return handle_; }

 private:
  dds_entity_t handle_;
};

/// A participant of a scripted peer, apart from the contexts.
class RawParticipant {
 public:
  explicit RawParticipant(std::uint32_t domain)
      : domain_(dds_create_domain(domain, profile(domain).c_str())),
        participant_(dds_create_participant(domain, nullptr, nullptr)) {}
  operator dds_entity_t() const { return participant_; }

  [[nodiscard]] RawEntity topic(const dds_topic_descriptor_t& type, const std::string& name) const {
    return RawEntity(dds_create_topic(participant_, &type, name.c_str(), nullptr, nullptr));
  }
  [[nodiscard]] RawEntity writer(dds_entity_t topic, const std::string& partition = {},
                                 const std::string& userData = {}) const {
    dds_qos_t* const qos = reliable(partition);
    dds_qset_userdata(qos, userData.data(), userData.size());
    RawEntity made(dds_create_writer(participant_, topic, qos, nullptr));
    dds_delete_qos(qos);
    return made;
  }
  [[nodiscard]] RawEntity reader(dds_entity_t topic, const std::string& partition = {}) const {
    dds_qos_t* const qos = reliable(partition);
    RawEntity made(dds_create_reader(participant_, topic, qos, nullptr));
    dds_delete_qos(qos);
    return made;
  }

 private:
  static dds_qos_t* reliable(const std::string& partition) {
    dds_qos_t* const qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(5));
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    if (!partition.empty()) dds_qset_partition1(qos, partition.c_str());
    return qos;
  }

  RawEntity domain_;
  RawEntity participant_;
};

inline bool hasReader(dds_entity_t writer) {
  dds_publication_matched_status_t status{};
  return dds_get_publication_matched_status(writer, &status) == DDS_RETCODE_OK &&
         status.current_count > 0;
}
inline bool hasWriter(dds_entity_t reader) {
  dds_subscription_matched_status_t status{};
  return dds_get_subscription_matched_status(reader, &status) == DDS_RETCODE_OK &&
         status.current_count > 0;
}

inline dds_sequence_octet octets(const std::string& text) {
  dds_sequence_octet result{};
  result._length = result._maximum = static_cast<std::uint32_t>(text.size());
  result._buffer = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
  return result;
}

inline std::string nested(int depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

/// A server that looks bad: too large, too deep, no JSON.
inline const std::string kTooLarge = "\"" + std::string(1U << 20, 'x') + "\"";

}  // namespace pdbus_test
