#include "plot/Curve.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace robotctl {

Curve::Curve(std::string name, TimeSpan span, std::size_t columns)
    : name_(std::move(name)), span_(span), columns_(std::max<std::size_t>(columns, 1)) {}

void Curve::add(double time, double value) {
  if (!std::isfinite(time) || !std::isfinite(value)) {
    hole_ = true;
    return;
  }
  const double length = span_.end - span_.begin;
  const double share = length > 0 ? std::clamp((time - span_.begin) / length, 0.0, 1.0) : 0;
  const double at = share * static_cast<double>(columns_.size());
  Column& column = columns_[std::min(static_cast<std::size_t>(at), columns_.size() - 1)];
  const Point point{time, value};
  range_.include(value);
  if (!column.used) {
    column = {true, hole_, point, point, point, point};
  } else {
    if (value < column.low.value) column.low = point;
    if (value > column.high.value) column.high = point;
    column.last = point;
  }
  hole_ = false;
}

std::vector<Curve::Stroke> Curve::strokes(double gap) const {
  std::vector<Stroke> strokes;
  double before = 0;
  for (const Column& column : columns_) {
    if (!column.used) continue;
    if (strokes.empty() || column.afterHole || column.first.time - before > gap) {
      strokes.emplace_back();
    }
    Stroke& stroke = strokes.back();
    const bool lowFirst = column.low.time <= column.high.time;
    for (const Point& point : {column.first, lowFirst ? column.low : column.high,
                               lowFirst ? column.high : column.low, column.last}) {
      const bool repeated = !stroke.empty() && stroke.back().time == point.time;
      if (!repeated) stroke.push_back(point);
    }
    before = column.last.time;
  }
  return strokes;
}

}  // namespace robotctl
