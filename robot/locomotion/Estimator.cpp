#include "locomotion/Estimator.h"

#include <algorithm>
#include <cmath>

#include "body/LegKinematics.h"
#include "locomotion/Attitude.h"

namespace orvane::robot {
namespace {

constexpr double kTouching = 8;            // N
constexpr double kVelocitySeconds = 0.03;  // legs against accelerometer
constexpr double kHeightSeconds = 0.01;

}  // namespace

Vector3 footVelocity(std::size_t leg, const std::array<double, kJointsPerLeg>& angles,
                     const std::array<double, kJointsPerLeg>& rates) {
  const auto& [hip, thigh, calf] = angles;
  const double thighSine = kGeometry.thighLength * std::sin(thigh);
  const double thighCosine = kGeometry.thighLength * std::cos(thigh);
  const double calfSine = kGeometry.calfLength * std::sin(thigh + calf);
  const double calfCosine = kGeometry.calfLength * std::cos(thigh + calf);
  const double aside = sideOf(leg) * kGeometry.hipLength;
  const double down = thighCosine + calfCosine;
  // In the leg's plane, then turned with the hip.
  const double forward = -(thighCosine + calfCosine) * rates[1] - calfCosine * rates[2];
  const double shorter = (thighSine + calfSine) * rates[1] + calfSine * rates[2];
  const double ch = std::cos(hip), sh = std::sin(hip);
  return {forward, (-aside * sh + down * ch) * rates[0] - shorter * sh,
          (aside * ch + down * sh) * rates[0] + shorter * ch};
}

void Estimator::step(const Readings& readings, const std::array<bool, kLegs>& carrying,
                     double seconds) {
  now_.euler = eulerOf(readings.attitude);
  now_.rates = readings.gyro;
  const double roll = now_.euler[0];
  const double pitch = now_.euler[1];

  Vector3 byLegs{};
  double height = 0;
  int standing = 0;
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const std::size_t first = leg * kJointsPerLeg;
    const LegAngles angles{readings.position[first], readings.position[first + 1],
                           readings.position[first + 2]};
    const LegAngles rates{readings.velocity[first], readings.velocity[first + 1],
                          readings.velocity[first + 2]};
    const Vector3 foot = sum(hipOf(leg), footPosition(leg, angles));
    now_.feet[leg] = toLevel(roll, pitch, foot);
    now_.touches[leg] = readings.footForce[leg] > kTouching;
    if (!now_.touches[leg] || !carrying[leg]) continue;
    const Vector3 moving = sum(footVelocity(leg, angles, rates), cross(readings.gyro, foot));
    const Vector3 level = toLevel(roll, pitch, moving);
    for (std::size_t axis = 0; axis < 3; ++axis) byLegs[axis] -= level[axis];
    height += kFootRadius - now_.feet[leg][2];
    ++standing;
  }

  Vector3 force = toLevel(roll, pitch, readings.accel);
  force[2] -= kGravity;
  // The level frame turns with the yaw.
  const double yawRate = toLevel(roll, pitch, readings.gyro)[2];
  const Vector3 turning = cross({0, 0, yawRate}, now_.velocity);
  const double trust = standing > 0 ? std::min(seconds / kVelocitySeconds, 1.0) : 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    double& velocity = now_.velocity[axis];
    velocity += (force[axis] - turning[axis]) * seconds;
    if (standing > 0)
      velocity += (byLegs[axis] / standing - velocity) * trust;
    else
      velocity *= 1 - seconds;  // in the air or on the belly nothing is known for long
  }
  const double seen = standing > 0 ? std::max(height / standing, kLyingHeight) : kLyingHeight;
  if (standing > 1 || now_.height == 0) {
    now_.height += (seen - now_.height) * std::min(seconds / kHeightSeconds, 1.0);
  }
  const double cosine = std::cos(now_.euler[2]);
  const double sine = std::sin(now_.euler[2]);
  now_.position[0] += (cosine * now_.velocity[0] - sine * now_.velocity[1]) * seconds;
  now_.position[1] += (sine * now_.velocity[0] + cosine * now_.velocity[1]) * seconds;
  now_.position[2] = now_.height;
}

}  // namespace orvane::robot
