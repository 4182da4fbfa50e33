#pragma once

#include <array>
#include <string>

#include "body/Body.h"
#include "physics/Variation.h"

namespace orvane::robot {

/// One step of the physics, s.
inline constexpr double kPhysicsStep = 0.001;
/// What a motor drives with falls off between these speeds, and is none at the second, rad/s.
inline constexpr double kFullTorqueSpeed = 14;
inline constexpr double kNoTorqueSpeed = 28;

/// Of a leg's joints and their motors; in the model the leg's number follows.
inline constexpr std::array<const char*, kJointsPerLeg> kJointNames{"hip", "thigh", "calf"};

/// The robot and the ground, as MJCF text. Geometry, ranges and torques are those of
/// LegKinematics.h; masses add up to kBodyMass. Names: body "trunk", joints "hip0".."calf3", motors
/// alike, feet "foot0".."foot3", sensors as World reads them.
/// Its figures have a point whatever the process's locale.
[[nodiscard]] std::string quadrupedModel(const Variation& variation);

}  // namespace orvane::robot
