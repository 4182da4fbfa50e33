#include "locomotion/Attitude.h"

#include <algorithm>
#include <cmath>

namespace orvane::robot {

Vector3 eulerOf(const std::array<double, 4>& quaternion) {
  const auto& [w, x, y, z] = quaternion;
  return {std::atan2(2 * (w * x + y * z), 1 - 2 * (x * x + y * y)),
          std::asin(std::clamp(2 * (w * y - z * x), -1.0, 1.0)),
          std::atan2(2 * (w * z + x * y), 1 - 2 * (y * y + z * z))};
}

Vector3 toLevel(double roll, double pitch, const Vector3& body) {
  const double cr = std::cos(roll), sr = std::sin(roll);
  const double cp = std::cos(pitch), sp = std::sin(pitch);
  const double y = cr * body[1] - sr * body[2];
  const double z = sr * body[1] + cr * body[2];
  return {cp * body[0] + sp * z, y, -sp * body[0] + cp * z};
}

}  // namespace orvane::robot
