#pragma once

#include <cstdint>
#include <string>

#include "VirtualRobot.h"

namespace orvane::robot {

/// One line on standard output that says what the robot does and who holds control: rewritten in
/// place on a terminal; in a pipe a plain line after a change, at most every two seconds. One
/// thread uses it.
class StatusLine {
 public:
  static constexpr std::uint64_t kPlainSpacingMs = 2000;

  /// `terminal`: rewrite in place.
  StatusLine(std::string deviceId, bool terminal);

  /// Shows `status` if it is worth it at `nowMs` (any monotonic clock, ms).
  void show(const RobotStatus& status, std::uint64_t nowMs);
  /// Leaves the cursor on a fresh line.
  void finish();

 private:
  [[nodiscard]] std::string describe(const RobotStatus& status) const;

  const std::string deviceId_;
  const bool terminal_;
  std::string shown_;  // what a pipe last got, apart from figures that change all the time
  std::uint64_t shownMs_ = 0;
};

}  // namespace orvane::robot
