#pragma once

#include <dds/dds.h>

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PDBus.h"
#include "Partition.h"

namespace Pexal::PDBus {

inline constexpr const char* kLogTag = "PDBus";

/// Lets a message through at most once a second; any thread.
class LogLimiter {
 public:
  [[nodiscard]] bool permit() noexcept;

 private:
  std::atomic<std::uint64_t> lastMs_{0};
};

/// Owns one libddsc entity. Deleting a reader or writer waits for its running listener, so an
/// Entity is never reset in a listener nor under a lock that a listener takes.
class Entity {
 public:
  Entity() = default;
  explicit Entity(dds_entity_t handle) : handle_(handle) {}
  Entity(Entity&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  Entity& operator=(Entity&& other) noexcept {
    if (this != &other) {
      reset();
      handle_ = std::exchange(other.handle_, 0);
    }
    return *this;
  }
  ~Entity() { reset(); }

  void reset() noexcept {
    if (handle_ > 0) dds_delete(handle_);
    handle_ = 0;
  }
  [[nodiscard]] dds_entity_t get() const { return handle_; }
  explicit operator bool() const { return handle_ > 0; }

 private:
  dds_entity_t handle_ = 0;
};

/// The entity that a dds_create_ function returned; empty, with the reason logged, when it refused.
[[nodiscard]] Entity checkedEntity(dds_entity_t handle, const char* what, const std::string& name);

struct QosDeleter {
  void operator()(dds_qos_t* qos) const { dds_delete_qos(qos); }
};
using QosPtr = std::unique_ptr<dds_qos_t, QosDeleter>;
struct ListenerDeleter {
  void operator()(dds_listener_t* listener) const { dds_delete_listener(listener); }
};
using ListenerPtr = std::unique_ptr<dds_listener_t, ListenerDeleter>;

/// QoS of every endpoint here: reliable, keep-all, volatile. A write that meets libddsc's
/// high-water mark of unacknowledged bytes blocks at most `maxBlockingMs` and has then not taken
/// the sample. The mark adapts itself to loss and can be as low as a few samples, so this is no
/// rare event.
[[nodiscard]] QosPtr reliableQos(std::int64_t maxBlockingMs = 100);
/// QoS of a publisher or subscriber in that partition.
[[nodiscard]] QosPtr partitionQos(const std::string& partition);
[[nodiscard]] ListenerPtr makeListener(void* argument);

/// Deletes writers side by side: one with samples that its reader hasn't acknowledged lingers for a
/// second inside libddsc.
void deleteWriters(std::vector<Entity> writers);

/// Key of the participant behind a matched writer or reader, and what its user data announces.
struct RemoteEndpoint {
  PeerId participant{};
  std::string userData;
};
/// Nothing when it is matched no more.
[[nodiscard]] std::optional<RemoteEndpoint> matchedWriter(dds_entity_t reader,
                                                          dds_instance_handle_t handle);
[[nodiscard]] std::optional<RemoteEndpoint> matchedReader(dds_entity_t writer,
                                                          dds_instance_handle_t handle);
[[nodiscard]] std::vector<dds_instance_handle_t> matchedWriters(dds_entity_t reader);
[[nodiscard]] std::vector<dds_instance_handle_t> matchedReaders(dds_entity_t writer);

/// A sample of a generated type, contents owned.
template <class T, const dds_topic_descriptor_t& Descriptor>
class Sample {
 public:
  Sample() = default;
  Sample(Sample&& other) noexcept : value(std::exchange(other.value, T{})) {}
  Sample& operator=(Sample&& other) noexcept {
    std::swap(value, other.value);
    return *this;
  }
  ~Sample() { dds_sample_free(&value, &Descriptor, DDS_FREE_CONTENTS); }

  T value{};
};

/// Takes everything that `reader` holds, for listeners: `use(sample, info)` for each valid sample,
/// which it may move out.
template <class SampleType, class Use>
void takeAll(dds_entity_t reader, const Use& use) {
  constexpr std::uint32_t kBatch = 4;
  int taken = 0;
  do {
    std::array<SampleType, kBatch> samples;
    std::array<void*, kBatch> pointers{};
    std::array<dds_sample_info_t, kBatch> infos{};
    for (std::uint32_t i = 0; i < kBatch; ++i) pointers[i] = &samples[i].value;
    taken = dds_take(reader, pointers.data(), infos.data(), kBatch, kBatch);
    for (int i = 0; i < taken; ++i) {
      const auto index = static_cast<std::size_t>(i);
      if (infos[index].valid_data) use(samples[index], infos[index]);
    }
  } while (taken == static_cast<int>(kBatch));
}

[[nodiscard]] inline std::string_view textOf(const dds_sequence_octet& octets) {
  return {reinterpret_cast<const char*>(octets._buffer), octets._length};
}
/// A view of `text` as a sequence to be written; owns nothing.
[[nodiscard]] dds_sequence_octet octetsOf(const std::string& text);

/// Which numbers of one sender have been seen: the highest and a bitmap of those just below it.
/// Numbers further down count as seen, 0 as invalid.
class SequenceWindow {
 public:
  /// True when `number` is seen for the first time.
  [[nodiscard]] bool accept(std::uint64_t number);

 private:
  static constexpr std::size_t kSize = 512;
  std::uint64_t highest_ = 0;
  std::bitset<kSize> seen_;
};

}  // namespace Pexal::PDBus
