#include "Leg.h"

#include <algorithm>
#include <cmath>

namespace low_level_stand {
namespace {

constexpr double kWeight = 13.5 * 9.81;  // N
constexpr double kHipLength = 0.085;     // m, from the hip's axis aside to the plane of the leg
constexpr double kThighLength = 0.21;    // m
constexpr double kCalfLength = 0.22;     // m
constexpr double kOnBelly = 0.09;        // m, length of a leg up to which the belly carries
constexpr double kOnLegs = 0.14;         // m, from which the legs carry everything

}  // namespace

Joints carryingTorques(const Joints& angles) {
  Joints torques{};
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const std::size_t first = leg * kJointsPerLeg;
    const double hip = angles[first];
    const double thigh = angles[first + 1];
    const double shank = thigh + angles[first + 2];                // against the vertical
    const double aside = leg % 2 == 0 ? kHipLength : -kHipLength;  // left, right
    // The foot seen from the hip's axis, in the plane of the leg.
    const double forward = -kThighLength * std::sin(thigh) - kCalfLength * std::sin(shank);
    const double down = kThighLength * std::cos(thigh) + kCalfLength * std::cos(shank);

    const double share = std::clamp((down - kOnBelly) / (kOnLegs - kOnBelly), 0.0, 1.0);
    const double force = share * kWeight / kLegs;
    // Against the ground's reaction: each joint's share of the foot's way up and down.
    torques[first] = -force * (aside * std::cos(hip) + down * std::sin(hip));
    torques[first + 1] = force * std::cos(hip) * forward;
    torques[first + 2] = -force * std::cos(hip) * kCalfLength * std::sin(shank);
  }
  return torques;
}

double furthest(const Joints& a, const Joints& b) {
  double most = 0;
  for (std::size_t i = 0; i < kJoints; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

}  // namespace low_level_stand
