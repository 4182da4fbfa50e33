#pragma once

#include <string>
#include <vector>

namespace joint_trace {

/// One joint over time; the three rows have the same length.
struct Curve {
  std::string name;
  std::vector<double> seconds;
  std::vector<double> commanded;  ///< rad
  std::vector<double> measured;   ///< rad
};

/// A drawing with a panel per curve, `columns` of them side by side: time in seconds from 0 to the
/// right, positions in radians upwards, each panel with a scale of its own. `curves` holds one at
/// least, and each of them two points at least.
[[nodiscard]] std::string drawSvg(const std::vector<Curve>& curves, std::size_t columns);

}  // namespace joint_trace
