#pragma once

#include "body/Body.h"
#include "body/LegKinematics.h"

namespace orvane::robot {

// How joints move that are commanded one by one: each is an inertia with some friction, turned by
// its motor and, as far as its leg carries the robot, by the weight. The ground is flat, the body
// upright; it rests on its belly or on its three longest legs. Everything stays within the joints'
// ranges, their largest torques and kMaxJointSpeed, whatever is commanded.

inline constexpr double kMaxJointSpeed = 20;  ///< rad/s

/// Where the legs hold the body, and what that asks of them.
struct Support {
  double height = 0;                       ///< of the hips above the ground, m
  std::array<double, kLegs> load{};        ///< share of the weight, 0 to 1
  std::array<LegAngles, kLegs> torques{};  ///< with which each leg would carry its share, N m
};
[[nodiscard]] Support supportOf(const std::array<JointState, kJoints>& joints);

/// How much of the weight the legs carry at that height: 0 on the belly, 1 well above it.
[[nodiscard]] double shareOffTheBelly(double height);

/// Lets `seconds` (above 0, at most 0.01) pass for the joint of that number. Unconditionally
/// stable: the motor's own gains are taken at the end of the step.
void moveJoint(JointState& joint, const JointCommand& command, std::size_t number,
               const Support& support, double seconds);

}  // namespace orvane::robot
