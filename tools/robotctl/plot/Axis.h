#pragma once

#include <string>
#include <vector>

#include "plot/Curve.h"

namespace robotctl {

/// Round values on an axis, and how to write them.
struct Ticks {
  std::vector<double> values;
  int decimals = 0;
  [[nodiscard]] std::string label(double value) const;
};

/// About as many ticks as `most` within the range, never more; 1, 2 or 5 times a power of ten
/// apart.
[[nodiscard]] Ticks ticksWithin(const Range& range, int most);

/// The range with a margin, and some height when all values are the same.
[[nodiscard]] Range withMargin(Range range);

/// A linear map from a range to pixels.
class Scale {
 public:
  Scale(const Range& from, double toLow, double toHigh);
  [[nodiscard]] double operator()(double value) const { return offset_ + value * factor_; }

 private:
  double factor_;
  double offset_;
};

/// Seconds, minutes or hours, whatever suits the length of a recording.
struct TimeUnit {
  const char* name;
  double seconds;
};
[[nodiscard]] TimeUnit timeUnitFor(const TimeSpan& span);

}  // namespace robotctl
