#pragma once

#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/Records.h"

/// What the simulation client knows of the motors, and what it sends them. Nothing allocates.
namespace orvane::RobotSdk::lowlevel {

/// Twelve motors: the legs FL, FR, RL, RR with hip, thigh, calf each.
[[nodiscard]] MotorLayout simulationLayout();

/// A command as a sample of now; `record.motorNum` is 1 to 16, further entries stay zero.
[[nodiscard]] msg::dds_::MotionCtrl_ controlSample(const LowLevelMotorRecord& record);

/// Has the twelve motors damp: no stiffness, no torque of their own.
[[nodiscard]] msg::dds_::MotionCtrl_ dampingSample();

}  // namespace orvane::RobotSdk::lowlevel
