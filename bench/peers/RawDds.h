#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Raw.h"

/// What the raw baselines share: libddsc's C API as a careful programmer uses it, and nothing else.
namespace bench {

/// DDS settings as in the profile that the library writes for itself, on loopback.
[[nodiscard]] std::string rawProfile(std::uint32_t domain);

/// The handle; throws std::runtime_error with `what` and libddsc's reason when it is an error.
dds_entity_t checked(dds_entity_t handle, const char* what);

struct QosDeleter {
  void operator()(dds_qos_t* qos) const { dds_delete_qos(qos); }
};
using QosPtr = std::unique_ptr<dds_qos_t, QosDeleter>;
struct ListenerDeleter {
  void operator()(dds_listener_t* listener) const { dds_delete_listener(listener); }
};
using ListenerPtr = std::unique_ptr<dds_listener_t, ListenerDeleter>;

/// Reliable, keep-all, volatile: what the library's requests and replies travel by.
[[nodiscard]] QosPtr requestQos();
/// The same with the last text kept for late joiners: for an exchange right after the start.
[[nodiscard]] QosPtr startQos();
/// Best effort, keep-last 1, volatile: what the robot's observed topics travel by.
[[nodiscard]] QosPtr observedQos();

/// A participant on a domain of this process, with everything that is made from it.
class RawParticipant {
 public:
  explicit RawParticipant(std::uint32_t domain);
  ~RawParticipant();
  RawParticipant(const RawParticipant&) = delete;
  RawParticipant& operator=(const RawParticipant&) = delete;
  [[nodiscard]] dds_entity_t get() const { return participant_; }

 private:
  dds_entity_t domain_;
  dds_entity_t participant_;
};

/// A text to be written; owns nothing.
[[nodiscard]] bench_Text textSample(std::uint64_t number, std::string_view text);
/// Takes what `reader` holds: `use(number, text)` for each.
template <class Use>
void takeTexts(dds_entity_t reader, const Use& use) {
  for (;;) {
    void* sample = nullptr;
    dds_sample_info_t info;
    if (dds_take(reader, &sample, &info, 1, 1) <= 0) return;
    const auto& text = *static_cast<const bench_Text*>(sample);
    if (info.valid_data) {
      use(text.number, std::string_view(reinterpret_cast<const char*>(text.content._buffer),
                                        text.content._length));
    }
    dds_return_loan(reader, &sample, 1);
  }
}

}  // namespace bench
