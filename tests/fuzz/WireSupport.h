#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>
#include <utility>

#include "FuzzSupport.h"
#include "PDBus.h"
#include "pdbus/IDDSFactory.h"

/// Raw peers for the targets that go through libddsc: they write the wire types themselves, into
/// readers of the same process. libddsc delivers that on the writing thread, without the network.
namespace fuzz {

inline constexpr const char* kServer = "robotServer";
inline constexpr const char* kDomain = "host";
inline constexpr std::uint32_t kPatienceMs = 10'000;

/// A DDS context on loopback with the entries given ("client" or "eventBus" lists).
class Context {
 public:
  explicit Context(const std::string& entries) {
    Json::Value document;
    require(Pexal::Utils::stringToJson("{" + entries + "}", document), "the context's document");
    Json::Value domain;
    domain["name"] = kDomain;
    domain["domain"] = 42;
    domain["url"] =
        "<CycloneDDS><Domain Id=\"42\"><General><Interfaces><NetworkInterface name=\"lo\"/>"
        "</Interfaces></General></Domain></CycloneDDS>";
    document["domain"].append(domain);
    require(factory->initial(document), "a DDS context on loopback");
  }
  ~Context() { factory->shutdown(); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  [[nodiscard]] dds_entity_t participant() const {
    return factory->participant(kDomain).get_ddsc_entity();
  }

  const std::shared_ptr<Pexal::PDBus::IDDSFactory> factory = Pexal::PDBus::IDDSFactory::create();
};

/// One libddsc entity.
class RawEntity {
 public:
  explicit RawEntity(dds_entity_t handle) : handle_(handle) {
    require(handle > 0, "a DDS entity", dds_strretcode(handle));
  }
  RawEntity(RawEntity&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  RawEntity& operator=(RawEntity&&) = delete;
  ~RawEntity() {
    if (handle_ > 0) dds_delete(handle_);
  }
  operator dds_entity_t() const { return handle_; }

 private:
  dds_entity_t handle_;
};

/// How a raw peer's reader or writer is made.
struct RawSettings {
  std::string partition;
  std::string userData;
  dds_on_data_available_fn onData = nullptr;
  void* argument = nullptr;
};

namespace detail {

template <class Create>
RawEntity make(const Create& create, const RawSettings& settings) {
  dds_qos_t* const qos = dds_create_qos();
  dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(5));
  dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
  if (!settings.partition.empty()) dds_qset_partition1(qos, settings.partition.c_str());
  dds_qset_userdata(qos, settings.userData.data(), settings.userData.size());
  dds_listener_t* const listener = dds_create_listener(settings.argument);
  if (settings.onData != nullptr) dds_lset_data_available(listener, settings.onData);
  RawEntity made(create(qos, listener));
  dds_delete_listener(listener);
  dds_delete_qos(qos);
  return made;
}

}  // namespace detail

inline RawEntity rawTopic(dds_entity_t participant, const dds_topic_descriptor_t& type,
                          const std::string& name) {
  return RawEntity(dds_create_topic(participant, &type, name.c_str(), nullptr, nullptr));
}
inline RawEntity rawWriter(dds_entity_t participant, dds_entity_t topic,
                           const RawSettings& settings) {
  return detail::make(
      [&](const dds_qos_t* qos, const dds_listener_t* listener) {
        return dds_create_writer(participant, topic, qos, listener);
      },
      settings);
}
inline RawEntity rawReader(dds_entity_t participant, dds_entity_t topic,
                           const RawSettings& settings) {
  return detail::make(
      [&](const dds_qos_t* qos, const dds_listener_t* listener) {
        return dds_create_reader(participant, topic, qos, listener);
      },
      settings);
}

/// Takes everything that a raw reader holds.
template <class T, class Use>
void takeRaw(dds_entity_t reader, const Use& use) {
  for (;;) {
    void* sample = nullptr;
    dds_sample_info_t info{};
    if (dds_take(reader, &sample, &info, 1, 1) <= 0) return;
    if (info.valid_data) use(*static_cast<const T*>(sample));
    dds_return_loan(reader, &sample, 1);
  }
}

inline dds_sequence_octet octets(const std::string& text) {
  dds_sequence_octet result{};
  result._length = result._maximum = static_cast<std::uint32_t>(text.size());
  result._buffer = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
  return result;
}

inline void write(dds_entity_t writer, const void* sample) {
  require(dds_write(writer, sample) == DDS_RETCODE_OK, "a raw peer can write");
}

}  // namespace fuzz
