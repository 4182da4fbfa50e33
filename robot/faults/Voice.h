#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

#include "pbase/CTime.h"

namespace orvane::robot {

/// Whether the robot speaks, and whether what it says makes sense.
///
/// Threading contract: any thread, no lock; the control loop asks at every step. Two states that
/// end by themselves at a time of the platform's clock.
class Voice {
 public:
  /// No answers, no events, no samples for `ms`; 0: until speak().
  void silence(std::uint32_t ms) { silentUntilUs_ = endOf(ms); }
  void speak() { silentUntilUs_ = 0; }
  /// Wrong types and figures in all that it says for `ms`; 0: until makeSense().
  void talkNonsense(std::uint32_t ms) { nonsenseUntilUs_ = endOf(ms); }
  void makeSense() { nonsenseUntilUs_ = 0; }

  [[nodiscard]] bool isSilent() const { return silentMs() > 0; }
  [[nodiscard]] bool talksNonsense() const { return nonsenseMs() > 0; }
  /// What is left, in ms, rounded up; kForever: until told otherwise.
  [[nodiscard]] std::uint64_t silentMs() const { return leftOf(silentUntilUs_); }
  [[nodiscard]] std::uint64_t nonsenseMs() const { return leftOf(nonsenseUntilUs_); }
  /// Counts what was spoilt, so that one kind of nonsense follows the other.
  [[nodiscard]] std::uint32_t nextTurn() { return turn_++; }

  static constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max();

 private:
  using Time = std::atomic<std::uint64_t>;

  static std::uint64_t endOf(std::uint32_t ms) {
    return ms == 0 ? kForever : Pexal::PBase::CTime::getCurrentMicroSecond() + ms * 1000ULL;
  }
  static std::uint64_t leftOf(const Time& time) {
    const std::uint64_t untilUs = time;
    if (untilUs == 0 || untilUs == kForever) return untilUs;
    const std::uint64_t nowUs = Pexal::PBase::CTime::getCurrentMicroSecond();
    return untilUs > nowUs ? (untilUs - nowUs + 999) / 1000 : 0;
  }

  Time silentUntilUs_{0};
  Time nonsenseUntilUs_{0};
  std::atomic<std::uint32_t> turn_{0};
};

}  // namespace orvane::robot
