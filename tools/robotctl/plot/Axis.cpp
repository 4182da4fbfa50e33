#include "plot/Axis.h"

#include <algorithm>
#include <cmath>

#include "core/Text.h"

namespace robotctl {
namespace {

constexpr double kMargin = 0.06;       // of the range, above and below
constexpr double kLeastHeight = 1e-3;  // of the largest value: less is noise of its last digits

constexpr double kLarge = 1e5;  // from here on digits would take too much room

}  // namespace

std::string Ticks::label(double value) const {
  if (std::abs(value) >= kLarge) return format("%.3g", value);
  std::string text = format("%.*f", decimals, value);
  if (text[0] == '-' && text.find_first_not_of("-0.") == std::string::npos) text.erase(0, 1);
  return text;
}

Ticks ticksWithin(const Range& range, int most) {
  const double height = range.high - range.low;
  Ticks ticks;
  if (!std::isfinite(height) || height <= 0 || most < 1) return ticks;
  const double least = height / most;
  const int power = static_cast<int>(std::floor(std::log10(least)));
  double step = std::pow(10.0, power);
  int decimals = -power;
  if (step * 2 >= least && step < least) {
    step *= 2;
  } else if (step * 5 >= least && step < least) {
    step *= 5;
  } else if (step < least) {
    step *= 10;
    --decimals;
  }
  ticks.decimals = std::clamp(decimals, 0, 9);
  const double first = std::ceil(range.low / step);
  for (int at = 0; at <= most; ++at) {
    const double value = (first + at) * step;
    if (value > range.high) break;
    ticks.values.push_back(value);
  }
  return ticks;
}

Range withMargin(Range range) {
  if (range.empty()) return {0, 1};
  const double largest = std::max({std::abs(range.low), std::abs(range.high), 1e-3});
  const double missing = largest * kLeastHeight - (range.high - range.low);
  const double margin = std::max((range.high - range.low) * kMargin, missing);
  return {range.low - margin, range.high + margin};
}

Scale::Scale(const Range& from, double toLow, double toHigh) {
  const double height = from.high - from.low;
  factor_ = height > 0 ? (toHigh - toLow) / height : 0;
  offset_ = toLow - from.low * factor_;
}

TimeUnit timeUnitFor(const TimeSpan& span) {
  const double length = span.end - span.begin;
  if (length <= 180) return {"s", 1};
  if (length <= 3 * 3600) return {"min", 60};
  return {"h", 3600};
}

}  // namespace robotctl
