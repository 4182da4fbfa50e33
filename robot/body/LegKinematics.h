#pragma once

#include "body/Body.h"

namespace orvane::robot {

using LegAngles = std::array<double, kJointsPerLeg>;  ///< hip, thigh, calf, rad

/// Geometry of the robot. Lengths in m, mass in kg.
struct LegGeometry {
  double hipLength = 0.085;  ///< hip axis to the plane of thigh and calf
  double thighLength = 0.21;
  double calfLength = 0.22;
  double hipX = 0.20;   ///< hip axes in front of and behind the body's centre
  double hipY = 0.055;  ///< hip axes beside the body's centre
};
inline constexpr LegGeometry kGeometry{};
inline constexpr double kBodyMass = 13.5;
/// Of the ball around the foot's centre, m.
inline constexpr double kFootRadius = 0.022;
inline constexpr double kGravity = 9.81;  ///< m/s^2
/// Height of the hips while the robot lies on its belly, m.
inline constexpr double kLyingHeight = 0.09;

/// Range of a joint.
struct JointLimit {
  double lower;      ///< rad
  double upper;      ///< rad
  double maxTorque;  ///< N m
};
inline constexpr std::array<JointLimit, kJointsPerLeg> kJointLimits{
    {{-0.90, 0.90, 24.0}, {-1.20, 3.00, 24.0}, {-2.80, -0.50, 45.0}}};
/// With which a motor brakes that doesn't drive, N m s/rad.
inline constexpr double kBrakeDamping = 2.0;

/// +1 for the left legs, -1 for the right ones.
constexpr double sideOf(std::size_t leg) {
  return leg % 2 == 0 ? 1.0 : -1.0;
}

/// Position of a leg's hip axis in the body's frame.
constexpr Vector3 hipOf(std::size_t leg) {
  return {leg < 2 ? kGeometry.hipX : -kGeometry.hipX, sideOf(leg) * kGeometry.hipY, 0};
}

/// Where the foot is, seen from the leg's hip axis. The hip turns about x, thigh and calf about y
/// (positive: to the rear); all angles 0 is a straight leg downwards.
[[nodiscard]] Vector3 footPosition(std::size_t leg, const LegAngles& angles);

/// The angles that bring the foot to `foot`, knee to the rear, within the joint limits; a point
/// that the leg can't reach gives the nearest pose in that direction.
[[nodiscard]] LegAngles legAngles(std::size_t leg, const Vector3& foot);

/// The torques with which the leg presses down on the ground with `force` newtons.
[[nodiscard]] LegAngles supportTorques(std::size_t leg, const LegAngles& angles, double force);

}  // namespace orvane::robot
