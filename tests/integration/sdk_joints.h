#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "orvane/RobotSdk/Records.h"

/// What low-level tests have a lying robot's joints do, in the test's process and in others.
namespace sdk_test {

inline constexpr float kStroke = 0.2F;  // rad, within reach of a first command

/// Leads thighs and calves kStroke away from where `start` has them; the hips stay.
inline orvane::RobotSdk::LowLevelMotorRecord strokeFrom(
    const orvane::RobotSdk::ObservedMotionRecord& start) {
  constexpr float kDirections[] = {0, 1, -1};
  orvane::RobotSdk::LowLevelMotorRecord command{};
  command.motorNum = static_cast<std::uint32_t>(std::clamp<std::int32_t>(+start.motorNum, 0, 12));
  for (std::uint32_t i = 0; i < command.motorNum; ++i) {
    const orvane::RobotSdk::ObservedMotor joint = start.motor[i];
    const float direction = joint.jointNo < 3 ? kDirections[joint.jointNo] : 0;
    command.motor[i] = {
        joint.position + direction * kStroke, 0, 60, 2, 0, joint.limbsNo, joint.jointNo};
  }
  return command;
}

/// The largest way from `start` that a joint has come, rad.
inline float movedFrom(const orvane::RobotSdk::ObservedMotionRecord& start,
                       const orvane::RobotSdk::ObservedMotionRecord& now) {
  float most = 0;
  for (std::uint32_t i = 0; i < orvane::RobotSdk::kMaxMotors; ++i) {
    most = std::max(most, std::abs(now.motor[i].position - start.motor[i].position));
  }
  return most;
}

}  // namespace sdk_test
