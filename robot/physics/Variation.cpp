#include "physics/Variation.h"

#include <cmath>
#include <random>

namespace orvane::robot {

Variation Variation::ofSeed(std::uint32_t seed) {
  Variation variation;
  if (seed == 0) return variation;
  std::mt19937 random(seed);
  // Not std::uniform_real_distribution, whose figures differ between standard libraries.
  const auto between = [&random](double low, double high) {
    return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
  };
  variation.friction = between(0.5, 1.0);
  variation.trunkMass = between(-0.8, 1.5);
  variation.gyroNoise = 0.01;
  variation.accelNoise = 0.08;
  variation.attitudeNoise = 0.002;
  variation.positionNoise = 0.0005;
  variation.velocityNoise = 0.02;
  variation.startYaw = between(-M_PI, M_PI);
  variation.startJointSpread = 0.15;
  variation.noiseSeed = random();
  return variation;
}

}  // namespace orvane::robot
