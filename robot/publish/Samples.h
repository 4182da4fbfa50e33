#pragma once

#include <cstdint>

#include "body/Body.h"
#include "msg/MotionTypes.h"

namespace orvane::robot {

/// Joints, inertial unit and power as the robot publishes them: angles in rad, torques in N m,
/// temperatures in degrees Celsius, `power` the charge in percent. `timestampUs`: platform's clock.
void fill(orvane::msg::dds_::MotionObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs);

/// Odometry in the world frame (m, m/s, rad). There is no satellite receiver and no beacon: their
/// `valid` flags are 0. `odometryEpoch` changes whenever the odometry's origin does.
void fill(orvane::msg::dds_::SensorObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs, std::uint32_t odometryEpoch);

}  // namespace orvane::robot
