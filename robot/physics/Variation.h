#pragma once

#include <cstdint>

namespace orvane::robot {

/// How one physical robot differs from the drawing: what a controller must put up with.
struct Variation {
  double friction = 0.8;        ///< of feet and belly on the ground
  double trunkMass = 0;         ///< kg more (or less) than drawn
  double gyroNoise = 0;         ///< standard deviations of one reading: rad/s,
  double accelNoise = 0;        ///< m/s^2,
  double attitudeNoise = 0;     ///< rad,
  double positionNoise = 0;     ///< rad, of a joint,
  double velocityNoise = 0;     ///< rad/s, of a joint
  double startYaw = 0;          ///< rad
  double startJointSpread = 0;  ///< rad, of the pose in which it lies at the start
  std::uint32_t noiseSeed = 1;

  /// The drawing's robot for 0; else one of many that are like it, always the same for a seed.
  [[nodiscard]] static Variation ofSeed(std::uint32_t seed);
};

}  // namespace orvane::robot
