#pragma once

#include <cstdint>
#include <optional>

#include "ControlLoop.h"

namespace orvane::robot {

/// Notices that a robot's time goes slower than the clock's. One thread uses it, and looks several
/// times a second.
class PaceWatch {
 public:
  /// The real-time factor of the last ten seconds, when these are over and it was too low to go
  /// unsaid. `pace`: since the start. A pause between looks (the process was stopped) doesn't
  /// count.
  [[nodiscard]] std::optional<double> look(const Pace& pace, std::uint64_t nowMs) {
    const bool paused = nowMs > lookedMs_ + kPauseMs;
    lookedMs_ = nowMs;
    if (beginMs_ == 0) beginMs_ = nowMs;
    const double robotMs = pace.realTimeFactor * static_cast<double>(nowMs - beginMs_);
    if (paused) {
      sinceMs_ = 0;  // `pace` may be of before the pause: the next look is the first that counts
      return std::nullopt;
    }
    if (sinceMs_ != 0 && nowMs < sinceMs_ + kEveryMs) return std::nullopt;
    const bool measured = sinceMs_ != 0;
    const double factor = (robotMs - sinceRobotMs_) / static_cast<double>(nowMs - sinceMs_);
    sinceMs_ = nowMs;
    sinceRobotMs_ = robotMs;
    if (!measured || factor >= kFine) return std::nullopt;
    return factor;
  }

 private:
  static constexpr std::uint64_t kEveryMs = 10'000;
  static constexpr std::uint64_t kPauseMs = 2'000;
  static constexpr double kFine = 0.95;

  std::uint64_t beginMs_ = 0;
  std::uint64_t lookedMs_ = 0;
  std::uint64_t sinceMs_ = 0;  // of this measurement; 0: none is under way
  double sinceRobotMs_ = 0;
};

}  // namespace orvane::robot
