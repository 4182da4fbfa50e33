#include "Motion.h"

#include <algorithm>
#include <cmath>

namespace joint_trace {

using namespace orvane::RobotSdk;

namespace {

constexpr float kStiffness = 60;  // N m/rad
constexpr float kDamping = 2;     // N m s/rad

/// Which way hip, thigh and calf go, and how far.
double shareOf(std::uint16_t joint) {
  constexpr double kShares[] = {0.5, 1, 1};
  return joint < std::size(kShares) ? kShares[joint] : 0;
}

}  // namespace

Motion::Motion(const ObservedMotionRecord& start)
    : joints_(
          static_cast<std::uint32_t>(std::clamp<std::int32_t>(+start.motorNum, 0, kMaxMotors))) {
  for (std::uint32_t i = 0; i < joints_; ++i) start_[i] = start.motor[i];
}

LowLevelMotorRecord Motion::at(double seconds) const {
  const double phase = 2 * M_PI * std::max(0.0, seconds - kRestSeconds) / kStrokeSeconds;
  const double way = kStrokeRadians * (1 - std::cos(phase)) / 2;
  const double speed = kStrokeRadians * M_PI / kStrokeSeconds * std::sin(phase);
  LowLevelMotorRecord command{};
  command.motorNum = joints_;
  for (std::uint32_t i = 0; i < joints_; ++i) {
    LowLevelMotor& motor = command.motor[i];
    const double share = shareOf(start_[i].jointNo);
    motor.position = static_cast<float>(start_[i].position + share * way);
    motor.velocity = static_cast<float>(share * speed);
    motor.kpGain = kStiffness;
    motor.kdGain = kDamping;
    motor.limbsNo = start_[i].limbsNo;
    motor.jointNo = start_[i].jointNo;
  }
  return command;
}

}  // namespace joint_trace
