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
constexpr double kUnsureSeconds = 0.1;  // longer than a trot has less than two feet on the ground

/// How fast the foot's centre moves because its ball rolls where it stands: level frame, m/s.
Vector3 rolling(double roll, double pitch, const LegAngles& angles, const LegAngles& rates,
                const Vector3& gyro) {
  const double bending = rates[1] + rates[2];
  const Vector3 shank{rates[0], std::cos(angles[0]) * bending, std::sin(angles[0]) * bending};
  return cross(toLevel(roll, pitch, sum(gyro, shank)), {0, 0, kFootRadius});
}

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

Estimator::Estimator() {
  now_.height = kLyingHeight;
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
    if (readings.footForce[leg] <= kTouching || !carrying[leg]) continue;
    const Vector3 moving = sum(footVelocity(leg, angles, rates), cross(readings.gyro, foot));
    const Vector3 level = toLevel(roll, pitch, moving);
    const Vector3 rolls = rolling(roll, pitch, angles, rates, readings.gyro);
    for (std::size_t axis = 0; axis < 3; ++axis) byLegs[axis] += rolls[axis] - level[axis];
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
  judgeHeight(height, standing, seconds);
  if (!firstYaw_) firstYaw_ = now_.euler[2];
  now_.yaw = std::remainder(now_.euler[2] - *firstYaw_, 2 * M_PI);
  const double cosine = std::cos(now_.yaw);
  const double sine = std::sin(now_.yaw);
  now_.position[0] += (cosine * now_.velocity[0] - sine * now_.velocity[1]) * seconds;
  now_.position[1] += (sine * now_.velocity[0] + cosine * now_.velocity[1]) * seconds;
  now_.position[2] = now_.height;
}

/// `sum`: of the heights that the standing feet tell of.
void Estimator::judgeHeight(double sum, int standing, double seconds) {
  unsureSeconds_ = standing > 1 ? 0 : unsureSeconds_ + seconds;
  // For a moment a stride may leave one foot or none: nothing has become of the height. A robot
  // that goes on so lies, or will soon.
  if (standing < 2 && unsureSeconds_ < kUnsureSeconds) return;
  const double seen = standing > 0 ? std::max(sum / standing, kLyingHeight) : kLyingHeight;
  now_.height += (seen - now_.height) * std::min(seconds / kHeightSeconds, 1.0);
}

}  // namespace orvane::robot
