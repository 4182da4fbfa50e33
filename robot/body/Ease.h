#pragma once

#include <algorithm>

namespace orvane::robot {

/// `value`, moved towards `target` by at most `most` (which isn't negative).
[[nodiscard]] inline double approach(double value, double target, double most) {
  return value + std::clamp(target - value, -most, most);
}

/// From 0 to 1 as `share` goes from 0 to 1, at rest at both ends.
[[nodiscard]] constexpr double smoothStep(double share) {
  return share * share * (3 - 2 * share);
}

}  // namespace orvane::robot
