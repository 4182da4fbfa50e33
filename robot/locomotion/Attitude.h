#pragma once

#include <array>

#include "body/Body.h"

namespace orvane::robot {

/// Roll, pitch and yaw (about x, then y, then z: world = Rz Ry Rx body) of w, x, y, z.
[[nodiscard]] Vector3 eulerOf(const std::array<double, 4>& quaternion);
/// `body` as seen from the level frame, which shares the yaw of a body with these angles.
[[nodiscard]] Vector3 toLevel(double roll, double pitch, const Vector3& body);

[[nodiscard]] constexpr Vector3 sum(const Vector3& a, const Vector3& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
[[nodiscard]] constexpr Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

}  // namespace orvane::robot
