#pragma once

#include <array>

#include "body/Body.h"

namespace orvane::robot {

/// What a robot knows of itself: its sensors, and nothing else.
struct Readings {
  std::array<double, kJoints> position{};      ///< rad
  std::array<double, kJoints> velocity{};      ///< rad/s
  std::array<double, kJoints> torque{};        ///< N m, from the motors' currents
  Vector3 accel{};                             ///< specific force, body frame, m/s^2
  Vector3 gyro{};                              ///< body frame, rad/s
  std::array<double, 4> attitude{1, 0, 0, 0};  ///< w, x, y, z: body to world
  std::array<double, kLegs> footForce{};       ///< N
};

}  // namespace orvane::robot
