#pragma once

#include <cstdint>

#include "body/Body.h"
#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::robot {

// What can be seen of the body, as the samples of the topics and as the records of the buffers.
// `timestampUs`: the platform's clock.

/// Joints, inertial unit and power: angles in rad, torques in N m, temperatures in degrees Celsius,
/// `power` the charge in percent.
void fill(orvane::msg::dds_::MotionObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs);
void fill(RobotSdk::ObservedMotionRecord& record, const BodyState& body);

/// Odometry in the world frame (m, m/s, rad), whose origin never moves while the process lives.
/// There is no satellite receiver and no beacon: their `valid` flags are 0.
void fill(orvane::msg::dds_::SensorObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs);
void fill(RobotSdk::ObservedSensorRecord& record, const BodyState& body);

}  // namespace orvane::robot
