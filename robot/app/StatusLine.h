#pragma once

#include <string>

#include "VirtualRobot.h"

namespace orvane::robot {

/// One line on standard output that says what the robot does and who holds control: rewritten in
/// place on a terminal; in a pipe a plain line after each change of posture, control, low-level
/// session, drive, track or refusal. One thread uses it.
class StatusLine {
 public:
  /// `terminal`: rewrite in place.
  StatusLine(std::string deviceId, bool terminal);

  /// Shows `status` if it is worth it.
  void show(const RobotStatus& status);
  /// Leaves the cursor on a fresh line.
  void finish();

 private:
  [[nodiscard]] std::string describe(const RobotStatus& status) const;

  const std::string deviceId_;
  const bool terminal_;
  std::string shown_;  // what a pipe last got, apart from figures that change all the time
};

}  // namespace orvane::robot
