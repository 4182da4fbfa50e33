#include "body/LegKinematics.h"

#include <algorithm>
#include <cmath>

namespace orvane::robot {
namespace {

double clampJoint(std::size_t joint, double angle) {
  return std::clamp(angle, kJointLimits[joint].lower, kJointLimits[joint].upper);
}

}  // namespace

Vector3 footPosition(std::size_t leg, const LegAngles& angles) {
  const auto& [hip, thigh, calf] = angles;
  const double forward =
      -kGeometry.thighLength * std::sin(thigh) - kGeometry.calfLength * std::sin(thigh + calf);
  const double down =
      kGeometry.thighLength * std::cos(thigh) + kGeometry.calfLength * std::cos(thigh + calf);
  const double aside = sideOf(leg) * kGeometry.hipLength;
  return {forward, aside * std::cos(hip) + down * std::sin(hip),
          aside * std::sin(hip) - down * std::cos(hip)};
}

LegAngles legAngles(std::size_t leg, const Vector3& foot) {
  const double aside = sideOf(leg) * kGeometry.hipLength;
  const double sideways = foot[1] * foot[1] + foot[2] * foot[2];
  const double down = std::sqrt(std::max(sideways - aside * aside, 1e-6));
  // The hip turns (aside, -down) onto the foot's (y, z).
  const double hip =
      std::remainder(std::atan2(foot[2], foot[1]) - std::atan2(-down, aside), 2 * M_PI);

  const double thighSquared = kGeometry.thighLength * kGeometry.thighLength;
  const double calfSquared = kGeometry.calfLength * kGeometry.calfLength;
  const double reachSquared = foot[0] * foot[0] + down * down;
  const double cosine = (reachSquared - thighSquared - calfSquared) /
                        (2 * kGeometry.thighLength * kGeometry.calfLength);
  const double calf = clampJoint(2, -std::acos(std::clamp(cosine, -1.0, 1.0)));
  const double thigh = std::atan2(-foot[0], down) -
                       std::atan2(kGeometry.calfLength * std::sin(calf),
                                  kGeometry.thighLength + kGeometry.calfLength * std::cos(calf));
  return {clampJoint(0, hip), clampJoint(1, thigh), calf};
}

LegAngles supportTorques(std::size_t leg, const LegAngles& angles, double force) {
  const auto& [hip, thigh, calf] = angles;
  // Rows of the foot's Jacobian for z; the ground's reaction is `force` along +z.
  const double down =
      kGeometry.thighLength * std::cos(thigh) + kGeometry.calfLength * std::cos(thigh + calf);
  const double calfSine = kGeometry.calfLength * std::sin(thigh + calf);
  const double thighSine = kGeometry.thighLength * std::sin(thigh);
  const double aside = sideOf(leg) * kGeometry.hipLength;
  const LegAngles heightPerAngle{aside * std::cos(hip) + down * std::sin(hip),
                                 std::cos(hip) * (thighSine + calfSine), std::cos(hip) * calfSine};
  LegAngles torques{};
  for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
    const double limit = kJointLimits[joint].maxTorque;
    torques[joint] = std::clamp(-heightPerAngle[joint] * force, -limit, limit);
  }
  return torques;
}

}  // namespace orvane::robot
