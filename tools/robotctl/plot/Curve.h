#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace robotctl {

/// Seconds since the beginning of the recording.
struct TimeSpan {
  double begin = 0;
  double end = 0;
};

struct Range {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();

  void include(double value) {
    low = value < low ? value : low;
    high = value > high ? value : high;
  }
  void include(const Range& other) {
    include(other.low);
    include(other.high);
  }
  [[nodiscard]] bool empty() const { return !(low <= high); }
};

/// One quantity over time, thinned out as it comes: of each column of pixels it keeps the first,
/// the last, the smallest and the largest value, which draw the same picture as all of them. Its
/// size doesn't depend on how much is added.
class Curve {
 public:
  struct Point {
    double time;
    double value;
  };
  using Stroke = std::vector<Point>;  ///< points that a line joins

  Curve(std::string name, TimeSpan span, std::size_t columns);

  /// In the order of time; what isn't finite is left out, and interrupts the line.
  void add(double time, double value);

  [[nodiscard]] const std::string& name() const { return name_; }
  /// Broken where nothing came for longer than `gap` seconds.
  [[nodiscard]] std::vector<Stroke> strokes(double gap) const;
  [[nodiscard]] const Range& range() const { return range_; }

 private:
  struct Column {
    bool used = false;
    bool afterHole = false;  // something that isn't finite stood in front
    Point first{}, low{}, high{}, last{};
  };

  const std::string name_;
  const TimeSpan span_;
  std::vector<Column> columns_;
  Range range_;
  bool hole_ = false;
};

}  // namespace robotctl
