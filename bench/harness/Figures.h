#pragma once

#include <json/value.h>

#include <cstddef>
#include <vector>

namespace bench {

/// What is left of a row of measured values, in their unit.
struct Figures {
  std::size_t samples = 0;
  double p50 = 0;
  double p99 = 0;
  double p999 = 0;
  double max = 0;

  /// By nearest rank. Throws std::runtime_error when there are no values.
  static Figures of(std::vector<double> values);
  [[nodiscard]] Json::Value toJson() const;
};

/// Appends the numbers of a JSON array, each multiplied by `scale`. Throws std::runtime_error when
/// it holds anything else.
void append(std::vector<double>& values, const Json::Value& array, double scale);

inline constexpr double kUsPerNs = 1e-3;
inline constexpr double kMsPerNs = 1e-6;

}  // namespace bench
