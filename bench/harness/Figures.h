#pragma once

#include <json/value.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace bench {

/// What is left of a row of measured values, in their unit.
struct Figures {
  std::size_t samples = 0;
  double mean = 0;
  double p50 = 0;
  std::optional<double> p99;   ///< of 100 values or more: of fewer it would be the largest
  std::optional<double> p999;  ///< likewise, of 1000
  double max = 0;

  /// Percentiles by nearest rank. Throws std::runtime_error when there are no values.
  static Figures of(std::vector<double> values);
  /// The mean of each figure of two runs of the same; the largest of both.
  static Figures between(const Figures& one, const Figures& other);
  [[nodiscard]] Json::Value toJson() const;
};

/// Appends the numbers of a JSON array, each multiplied by `scale`. Throws std::runtime_error when
/// it holds anything else.
void append(std::vector<double>& values, const Json::Value& array, double scale);

inline constexpr double kUsPerNs = 1e-3;
inline constexpr double kMsPerNs = 1e-6;

}  // namespace bench
