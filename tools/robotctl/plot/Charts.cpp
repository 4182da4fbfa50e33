#include "plot/Charts.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>

#include "core/Text.h"

namespace robotctl {
namespace {

constexpr double kLabelsWidth = 46;   // left of a frame
constexpr double kTitleHeight = 20;   // above it
constexpr double kTimesHeight = 20;   // below it
constexpr double kTextDrop = 4;       // from a text's middle to its base line
constexpr double kLetterWidth = 6.4;  // about, at 12 px
constexpr double kPixelsPerTick = 26;
constexpr double kPixelsPerTimeTick = 48;
constexpr std::size_t kColours = 7;
constexpr double kRowHeight = 24;
constexpr double kBarHeight = 18;
constexpr double kRowLabels = 70;
constexpr double kKeyHeight = 18;  // of a line that tells what the colours mean

std::string colour(const char* kind, std::size_t number) {
  return kind + std::to_string(number % kColours);
}

double textWidth(const std::string& text) {
  return static_cast<double>(text.size()) * kLetterWidth;
}

int ticksFor(double pixels, double each) {
  return std::max(1, static_cast<int>(pixels / each));
}

/// Lines and labels of the time, in the recording's unit.
void drawTimes(Svg& svg, const Box& frame, const TimeSpan& span, bool labels) {
  const TimeUnit unit = timeUnitFor(span);
  const Range range{span.begin / unit.seconds, span.end / unit.seconds};
  const Ticks ticks = ticksWithin(range, ticksFor(frame.width, kPixelsPerTimeTick));
  const Scale x(range, frame.x, frame.right());
  const double base = frame.bottom() + 15;
  const std::string axisName = std::string("time, ") + unit.name;
  const double nameBegin = frame.right() - textWidth(axisName);
  for (const double value : ticks.values) {
    svg.line(x(value), frame.y, x(value), frame.bottom(), "grid");
    const std::string label = ticks.label(value);
    if (!labels || x(value) + textWidth(label) / 2 + 8 > nameBegin) continue;
    svg.text(x(value), base, label, "middle", "small");
  }
  if (labels) svg.text(frame.right(), base, axisName, "end", "small");
}

void drawValues(Svg& svg, const Box& frame, const Range& range) {
  const Ticks ticks = ticksWithin(range, ticksFor(frame.height, kPixelsPerTick));
  const Scale y(range, frame.bottom(), frame.y);
  for (const double value : ticks.values) {
    svg.line(frame.x, y(value), frame.right(), y(value), "grid");
    svg.text(frame.x - 6, y(value) + kTextDrop, ticks.label(value), "end", "small");
  }
}

std::string strokesOf(const Curve& curve, const Box& frame, const Range& range,
                      const TimeSpan& span) {
  const Scale x({span.begin, span.end}, frame.x, frame.right());
  const Scale y(range, frame.bottom(), frame.y);
  const double column = (span.end - span.begin) / static_cast<double>(kCurveColumns);
  SvgPath path;
  for (const Curve::Stroke& stroke : curve.strokes(std::max(1.0, 2 * column))) {
    path.moveTo(x(stroke[0].time), y(stroke[0].value));
    if (stroke.size() == 1) path.lineTo(x(stroke[0].time) + 0.1, y(stroke[0].value));
    for (std::size_t at = 1; at < stroke.size(); ++at) {
      path.lineTo(x(stroke[at].time), y(stroke[at].value));
    }
  }
  return std::move(path).finish();
}

using Colours = std::map<std::string, std::size_t>;

Colours coloursOf(const std::vector<Episode>& episodes) {
  Colours colours;
  for (const Episode& episode : episodes) {
    if (!episode.what.empty()) colours.emplace(episode.what, colours.size());
  }
  return colours;
}

/// What the colours of a row mean: bars may be too short for their names.
void drawKey(Svg& svg, double x, double y, double right, const Colours& colours) {
  for (const auto& [what, number] : colours) {
    const double end = x + 16 + textWidth(what);
    if (end > right) return svg.text(x, y + 9, "...", "start", "small");
    svg.rectangle({x, y, 10, 10}, colour("f", number));
    svg.text(x + 15, y + 9, what, "start", "small");
    x = end + 12;
  }
}

/// A name on a bar when there is room for it.
void drawBar(Svg& svg, const Box& bar, const std::string& what, const std::string& style,
             const std::string& tooltip, bool light) {
  svg.rectangle(bar, style, tooltip);
  if (textWidth(what) + 8 > bar.width) return;
  svg.text(bar.x + bar.width / 2, bar.y + bar.height / 2 + kTextDrop, what, "middle",
           light ? "small" : "on");
}

std::string tooltipOf(const Episode& episode, const std::string& what) {
  return what + format(": %.1f to %.1f s", episode.begin, episode.end);
}

}  // namespace

Box frameOf(const Box& box) {
  return {box.x + kLabelsWidth, box.y + kTitleHeight, box.width - kLabelsWidth,
          box.height - kTitleHeight - kTimesHeight};
}

void drawChart(Svg& svg, const Box& box, const Chart& chart, const TimeSpan& span) {
  const Box frame = frameOf(box);
  Range range = chart.range;
  if (range.empty()) {
    for (const Curve* curve : chart.curves) range.include(curve->range());
  }
  const bool nothing = range.empty();
  range = withMargin(range);
  svg.text(frame.x, box.y + 14, chart.title, "start", "h3");
  drawTimes(svg, frame, span, chart.timeLabels);
  if (!nothing) drawValues(svg, frame, range);
  svg.beginClip(frame);
  for (std::size_t at = 0; at < chart.curves.size(); ++at) {
    if (chart.curves[at]->range().empty()) continue;
    svg.path(strokesOf(*chart.curves[at], frame, range, span), "curve " + colour("c", at),
             chart.curves[at]->name());
  }
  svg.endClip();
  svg.rectangle(frame, "axis");
  if (!nothing) return;
  svg.text(frame.x + frame.width / 2, frame.y + frame.height / 2, "nothing recorded", "middle");
}

double timelineHeight(std::size_t rows) {
  return static_cast<double>(rows + 1) * kRowHeight + kTimesHeight +
         static_cast<double>(rows) * kKeyHeight;
}

void drawTimeline(Svg& svg, const Box& box, const PlotData& data,
                  const std::vector<TimelineRow>& rows) {
  const Box frame{box.x + kRowLabels, box.y, box.width - kRowLabels,
                  static_cast<double>(rows.size() + 1) * kRowHeight};
  const Scale x({data.span.begin, data.span.end}, frame.x, frame.right());
  drawTimes(svg, frame, data.span, true);
  double y = frame.y + (kRowHeight - kBarHeight) / 2;
  const auto bar = [&](const Episode& episode, double height) {
    return Box{x(episode.begin), y, std::max(1.0, x(episode.end) - x(episode.begin)), height};
  };
  const auto label = [&](const std::string& title) {
    svg.text(frame.x - 8, y + kBarHeight / 2 + kTextDrop, title, "end");
  };
  double keyY = frame.bottom() + kTimesHeight + 6;
  for (const TimelineRow& row : rows) {
    label(row.title);
    const Colours colours = coloursOf(*row.episodes);
    for (const Episode& episode : *row.episodes) {
      const bool named = !episode.what.empty();
      const std::string what = named ? episode.what : row.nobody;
      drawBar(svg, bar(episode, kBarHeight), what, named ? colour("f", colours.at(what)) : "none",
              tooltipOf(episode, what), !named);
    }
    svg.text(frame.x - 8, keyY + 9, row.title, "end", "small");
    drawKey(svg, frame.x, keyY, frame.right(), colours);
    y += kRowHeight;
    keyY += kKeyHeight;
  }
  label("events");
  for (const double time : data.events) svg.line(x(time), y, x(time), y + kBarHeight, "tick");
  y = frame.y;
  for (const Episode& silence : data.silences) {
    svg.rectangle(bar(silence, frame.height), "gone", tooltipOf(silence, silence.what));
  }
  svg.rectangle(frame, "axis");
}

void drawPath(Svg& svg, const Box& box, const GroundPath& path) {
  Box frame = frameOf(box);
  svg.text(frame.x, box.y + 14, "path from above, m", "start", "h3");
  Range xs = withMargin(path.xRange());
  Range ys = withMargin(path.yRange());
  if (path.empty()) ys = xs;
  // One scale for both, the larger need; the other axis gets more room than it needs.
  const double metresPerPixel =
      std::max((xs.high - xs.low) / frame.width, (ys.high - ys.low) / frame.height);
  const auto widen = [&](Range& range, double pixels) {
    const double more = (metresPerPixel * pixels - (range.high - range.low)) / 2;
    range = {range.low - more, range.high + more};
  };
  widen(xs, frame.width);
  widen(ys, frame.height);
  const Scale x(xs, frame.x, frame.right());
  const Scale y(ys, frame.bottom(), frame.y);
  const Ticks across = ticksWithin(xs, ticksFor(frame.width, kPixelsPerTimeTick));
  for (const double value : across.values) {
    svg.line(x(value), frame.y, x(value), frame.bottom(), "grid");
    svg.text(x(value), frame.bottom() + 15, across.label(value), "middle", "small");
  }
  drawValues(svg, frame, ys);
  svg.beginClip(frame);
  for (const GroundPath::Stretch& stretch : path.stretches()) {
    SvgPath line;
    line.moveTo(x(stretch[0].x), y(stretch[0].y));
    for (const GroundPath::Place& place : stretch) line.lineTo(x(place.x), y(place.y));
    svg.path(std::move(line).finish(), "curve c0 path", "path");
  }
  if (!path.empty()) {
    const GroundPath::Place& start = path.stretches().front().front();
    const GroundPath::Place& end = path.stretches().back().back();
    svg.circle(x(start.x), y(start.y), 4.5, "f2", "start");
    svg.circle(x(end.x), y(end.y), 4.5, "f1", "end");
  }
  svg.endClip();
  svg.rectangle(frame, "axis");
  svg.circle(frame.right() - 84, box.y + 10, 4.5, "f2", "start");
  svg.text(frame.right() - 75, box.y + 14, "start");
  svg.circle(frame.right() - 34, box.y + 10, 4.5, "f1", "end");
  svg.text(frame.right(), box.y + 14, "end", "end");
  if (!path.empty()) return;
  svg.text(frame.x + frame.width / 2, frame.y + frame.height / 2, "nothing recorded", "middle");
}

void drawLegend(Svg& svg, double right, double y, const std::vector<std::string>& names) {
  for (std::size_t at = names.size(); at-- > 0;) {
    svg.text(right, y, names[at], "end");
    right -= textWidth(names[at]) + 6;
    svg.line(right - 18, y - kTextDrop, right, y - kTextDrop, "curve " + colour("c", at));
    right -= 38;
  }
}

}  // namespace robotctl
