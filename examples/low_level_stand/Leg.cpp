#include "Leg.h"

#include <algorithm>
#include <cmath>

namespace low_level_stand {
namespace {

constexpr double kHipLength = 0.085;   // m, from the hip's axis aside to the plane of the leg
constexpr double kThighLength = 0.21;  // m
constexpr double kCalfLength = 0.22;   // m
constexpr double kOnBelly = 0.09;      // m, length of a leg up to which the belly carries
constexpr double kOnLegs = 0.14;       // m, from which the legs carry everything

/// The foot seen from the hip, in the plane of the leg, and how it moves as the calf turns.
struct Foot {
  double x;  // m, forward
  double z;  // m, up: negative
  double xPerCalf;
  double zPerCalf;
};

Foot footOf(const Leg& angles) {
  const double thigh = angles[1];
  const double shank = thigh + angles[2];  // against the vertical
  return {-kThighLength * std::sin(thigh) - kCalfLength * std::sin(shank),
          -kThighLength * std::cos(thigh) - kCalfLength * std::cos(shank),
          -kCalfLength * std::cos(shank), kCalfLength * std::sin(shank)};
}

}  // namespace

Joints allLegs(const Leg& leg) {
  Joints joints{};
  for (std::size_t i = 0; i < kJoints; ++i) joints[i] = leg[i % kJointsPerLeg];
  return joints;
}

Leg legOf(const Joints& joints, std::size_t leg) {
  const std::size_t first = leg * kJointsPerLeg;
  return {joints[first], joints[first + 1], joints[first + 2]};
}

const char* nameOf(std::size_t joint) {
  constexpr std::array<const char*, kJoints> kNames{"FL_hip",   "FL_thigh", "FL_calf",  "FR_hip",
                                                    "FR_thigh", "FR_calf",  "RL_hip",   "RL_thigh",
                                                    "RL_calf",  "RR_hip",   "RR_thigh", "RR_calf"};
  return kNames[joint];
}

Joints carryingTorques(const Joints& angles) {
  Joints torques{};
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const Leg at = legOf(angles, leg);
    const Foot foot = footOf(at);
    const double share = std::clamp((-foot.z - kOnBelly) / (kOnLegs - kOnBelly), 0.0, 1.0);
    const double force = share * kWeight / kLegs;
    const double aside = leg % 2 == 0 ? kHipLength : -kHipLength;  // left, right
    // Against the ground's reaction: each joint's share of the foot's way up and down.
    double* const torque = &torques[leg * kJointsPerLeg];
    torque[0] = -force * (aside * std::cos(at[0]) - foot.z * std::sin(at[0]));
    torque[1] = force * std::cos(at[0]) * foot.x;
    torque[2] = -force * std::cos(at[0]) * foot.zPerCalf;
  }
  return torques;
}

double pressureOf(const Leg& angles, const Leg& torques) {
  // The ground's force on the foot, (x, z), balances the torques of thigh and calf:
  //   thigh = -(foot.z * x - foot.x * z),  calf = -(foot.xPerCalf * x + foot.zPerCalf * z)
  const Foot foot = footOf(angles);
  const double determinant = foot.z * foot.zPerCalf + foot.x * foot.xPerCalf;
  if (std::abs(determinant) < 1e-4) return 0;  // a straight leg carries without torque
  return (foot.xPerCalf * torques[1] - foot.z * torques[2]) / determinant;
}

}  // namespace low_level_stand
