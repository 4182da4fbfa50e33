#pragma once

#include <array>
#include <cstddef>

namespace low_level_stand {

// The robot that is led: four legs (front left, front right, rear left, rear right) of hip, thigh
// and calf. The hip turns about x, thigh and calf about y (positive: to the rear); all angles 0 is
// a straight leg downwards. An application for another robot has other figures here and in Leg.cpp.

inline constexpr std::size_t kLegs = 4;
inline constexpr std::size_t kJointsPerLeg = 3;
inline constexpr std::size_t kJoints = kLegs * kJointsPerLeg;

using Joints = std::array<double, kJoints>;  ///< leg by leg

[[nodiscard]] constexpr Joints allLegs(double hip, double thigh, double calf) {
  return {hip, thigh, calf, hip, thigh, calf, hip, thigh, calf, hip, thigh, calf};
}

inline constexpr Joints kFolded = allLegs(0, 1.5, -2.75);     ///< rad; the body rests on its belly
inline constexpr Joints kStanding = allLegs(0, 0.88, -1.73);  ///< rad; hips 0.30 m above the ground

/// The torques (N m) with which the legs carry the robot in that posture (rad), each a quarter of
/// its weight; none as long as the legs are so folded that it rests on its belly.
[[nodiscard]] Joints carryingTorques(const Joints& angles);

/// The largest difference between two angles of one joint, rad.
[[nodiscard]] double furthest(const Joints& a, const Joints& b);

}  // namespace low_level_stand
