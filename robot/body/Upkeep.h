#pragma once

#include "body/Body.h"

namespace orvane::robot {

// What all bodies have in common besides their motion: warm motors, a battery's load, a compass.

inline constexpr double kAmbient = 25;  ///< degrees Celsius

/// Lets the joint's motor warm up or cool down for `seconds`, as its torque has it.
void warm(JointState& joint, double seconds);
/// What the body draws from its battery, W.
[[nodiscard]] double powerDrawn(const BodyState& state);
/// The magnetic field that a body with these angles (roll, pitch, yaw) feels, microtesla.
[[nodiscard]] Vector3 magneticField(const Vector3& euler);
/// `world` as seen from a body with these angles.
[[nodiscard]] Vector3 intoBody(const Vector3& euler, const Vector3& world);

}  // namespace orvane::robot
