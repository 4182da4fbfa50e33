#pragma once

#include <array>
#include <cstddef>

namespace low_level_stand {

// The robot that is led: four legs (front left, front right, rear left, rear right) of hip, thigh
// and calf. The hip turns about x, thigh and calf about y (positive: to the rear); all angles 0 is
// a straight leg downwards. An application for another robot has other figures here.

inline constexpr std::size_t kLegs = 4;
inline constexpr std::size_t kJointsPerLeg = 3;
inline constexpr std::size_t kJoints = kLegs * kJointsPerLeg;

using Leg = std::array<double, kJointsPerLeg>;  ///< hip, thigh, calf
using Joints = std::array<double, kJoints>;     ///< leg by leg

inline constexpr double kWeight = 13.5 * 9.81;     ///< N
inline constexpr Leg kFolded{0.0, 1.5, -2.75};     ///< rad; the body rests on its belly
inline constexpr Leg kStanding{0.0, 0.88, -1.73};  ///< rad; hips 0.30 m above the ground

[[nodiscard]] Joints allLegs(const Leg& leg);
[[nodiscard]] Leg legOf(const Joints& joints, std::size_t leg);

/// "FL_hip" and so on.
[[nodiscard]] const char* nameOf(std::size_t joint);

/// The torques (N m) with which the legs carry the robot in that posture, each a quarter of its
/// weight; none as long as the legs are so folded that it rests on its belly.
[[nodiscard]] Joints carryingTorques(const Joints& angles);

/// The force (N) with which a leg presses down on the ground while its joints have these torques:
/// nothing when the foot hangs in the air, whatever was commanded.
[[nodiscard]] double pressureOf(const Leg& angles, const Leg& torques);

}  // namespace low_level_stand
