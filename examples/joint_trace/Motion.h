#pragma once

#include <array>
#include <cstdint>

#include "orvane/RobotSdk/Records.h"

namespace joint_trace {

/// A smooth way of all joints: at rest for kRestSeconds, then away from where they are and back in
/// kStrokeSeconds, each as often as it goes on.
class Motion {
 public:
  static constexpr double kRestSeconds = 0.5;
  static constexpr double kStrokeSeconds = 2;
  static constexpr double kStrokeRadians = 0.15;

  explicit Motion(const orvane::RobotSdk::ObservedMotionRecord& start);

  [[nodiscard]] std::uint32_t joints() const { return joints_; }
  /// The command for that many seconds after the start.
  [[nodiscard]] orvane::RobotSdk::LowLevelMotorRecord at(double seconds) const;

 private:
  std::uint32_t joints_;
  std::array<orvane::RobotSdk::ObservedMotor, orvane::RobotSdk::kMaxMotors> start_{};
};

}  // namespace joint_trace
