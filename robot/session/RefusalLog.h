#pragma once

#include <cstdint>

#include "session/MotorControl.h"

namespace orvane::robot {

/// Says in the log which commands to the motors were refused, at most once a second.
///
/// One thread uses it. Allocates only to log.
class RefusalLog {
 public:
  /// `source`: what is refused, for people; `unit`: of its number, with what stands between.
  explicit RefusalLog(const char* source, const char* unit = "") : source_(source), unit_(unit) {}

  /// Nothing when it was taken. `number`: what tells this one from others of the source.
  void note(RecordFate fate, std::uint64_t number);

 private:
  static constexpr std::uint64_t kEveryMs = 1000;

  const char* const source_;
  const char* const unit_;
  std::uint64_t reportedMs_ = 0;
  std::uint64_t unsaid_ = 0;  // refused since then
};

}  // namespace orvane::robot
