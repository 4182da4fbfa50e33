#include "SvgPlot.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace joint_trace {
namespace {

// In pixels.
constexpr double kLeft = 70;  // of the first column: room for numbers and the axis's name
constexpr double kTop = 80;   // of the first row: room for title and legend
constexpr double kBottom = 50;
constexpr double kRight = 20;
constexpr double kGapX = 60;
constexpr double kGapY = 45;

constexpr const char* kCommandedStyle = "stroke=\"#f0a030\" stroke-width=\"4\"";
constexpr const char* kMeasuredStyle = "stroke=\"#1a3f8b\" stroke-width=\"1.3\"";

struct Range {
  double low;
  double high;
};

struct Box {
  double x;
  double y;
  double width;
  double height;
  Range time;
  Range value;

  [[nodiscard]] double atTime(double seconds) const {
    return x + width * (seconds - time.low) / (time.high - time.low);
  }
  [[nodiscard]] double atValue(double radians) const {
    return y + height * (value.high - radians) / (value.high - value.low);
  }
};

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
  char text[512];
  std::va_list numbers;
  va_start(numbers, pattern);
  const int length = std::vsnprintf(text, sizeof text, pattern, numbers);
  va_end(numbers);
  return {text, static_cast<std::size_t>(std::clamp(length, 0, int{sizeof text} - 1))};
}

std::string text(double x, double y, const char* attributes, const std::string& words) {
  return format("<text x=\"%.1f\" y=\"%.1f\" %s>", x, y, attributes) + words + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2, const char* attributes) {
  return format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" %s/>\n", x1, y1, x2, y2,
                attributes);
}

Range rangeOf(const std::vector<double>& values) {
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  return {*low, *high};
}

/// What both rows lie in, with some air around, and not less than `least` high.
Range scaleOf(const Curve& curve, double least) {
  const Range commanded = rangeOf(curve.commanded);
  const Range measured = rangeOf(curve.measured);
  const double low = std::min(commanded.low, measured.low);
  const double high = std::max(commanded.high, measured.high);
  const double air = std::max(0.08 * (high - low), (least - (high - low)) / 2);
  return {low - air, high + air};
}

/// 1, 2 or 5 times a power of ten, so that about `count` of it fill the range.
double stepOf(const Range& range, int count) {
  const double rough = (range.high - range.low) / count;
  const double power = std::pow(10, std::floor(std::log10(rough)));
  for (const double step : {1.0, 2.0, 5.0}) {
    if (step * power >= rough) return step * power;
  }
  return 10 * power;
}

int decimalsOf(double step) {
  return std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
}

/// Calls `mark(value, label)` for each round number in the range.
template <class Mark>
void eachTick(const Range& range, int count, const Mark& mark) {
  const double step = stepOf(range, count);
  const int decimals = decimalsOf(step);
  for (double i = std::ceil(range.low / step - 1e-9); i * step <= range.high + 1e-9 * step; ++i) {
    const double value = i * step + 0.0;  // no "-0"
    mark(value, format("%.*f", decimals, value));
  }
}

std::string axes(const Box& box) {
  std::string svg;
  const auto lower = box.y + box.height;
  eachTick(box.time, 5, [&](double seconds, const std::string& label) {
    const double x = box.atTime(seconds);
    svg += line(x, box.y, x, lower, "stroke=\"#e4e4e4\"");
    svg += text(x, lower + 15, "text-anchor=\"middle\"", label);
  });
  eachTick(box.value, 4, [&](double radians, const std::string& label) {
    const double y = box.atValue(radians);
    svg += line(box.x, y, box.x + box.width, y, "stroke=\"#e4e4e4\"");
    svg += text(box.x - 6, y + 4, "text-anchor=\"end\"", label);
  });
  return svg + format(
                   "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
                   "stroke=\"#808080\"/>\n",
                   box.x, box.y, box.width, box.height);
}

std::string polyline(const Box& box, const std::vector<double>& seconds,
                     const std::vector<double>& values, const char* style) {
  std::string svg = format("<polyline fill=\"none\" stroke-linejoin=\"round\" %s points=\"", style);
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    svg += format("%.1f,%.1f ", box.atTime(seconds[i]), box.atValue(values[i]));
  }
  return svg + "\"/>\n";
}

std::string panel(const Box& box, const Curve& curve) {
  double furthest = 0;
  for (std::size_t i = 0; i < curve.commanded.size(); ++i) {
    furthest = std::max(furthest, std::fabs(curve.commanded[i] - curve.measured[i]));
  }
  std::string svg = axes(box);
  svg += polyline(box, curve.seconds, curve.commanded, kCommandedStyle);
  svg += polyline(box, curve.seconds, curve.measured, kMeasuredStyle);
  svg += text(box.x, box.y - 7, "font-weight=\"bold\"", curve.name);
  svg += text(box.x + box.width, box.y - 7, "text-anchor=\"end\" fill=\"#606060\"",
              format("at most %.3f rad apart", furthest));
  return svg;
}

std::string legend(double x, double y) {
  std::string svg = line(x, y, x + 30, y, kCommandedStyle);
  svg += text(x + 38, y + 4, "", "commanded");
  svg += line(x + 130, y, x + 160, y, kMeasuredStyle);
  return svg + text(x + 168, y + 4, "", "measured");
}

}  // namespace

std::string drawSvg(const std::vector<Curve>& curves, std::size_t columns) {
  const bool many = curves.size() > 1;
  const double panelWidth = many ? 260 : 760;
  const double panelHeight = many ? 130 : 340;
  const std::size_t rows = (curves.size() + columns - 1) / columns;
  const double width = kLeft + static_cast<double>(columns) * (panelWidth + kGapX) - kGapX + kRight;
  const double height = kTop + static_cast<double>(rows) * (panelHeight + kGapY) - kGapY + kBottom;

  std::string svg = format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
      "viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" font-size=\"12\">\n"
      "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
      width, height, width, height);
  svg += text(kLeft, 24, "font-size=\"16\"", "Joint positions, commanded and measured");
  svg += legend(kLeft, 42);
  for (std::size_t i = 0; i < curves.size(); ++i) {
    const Curve& curve = curves[i];
    svg += panel({kLeft + static_cast<double>(i % columns) * (panelWidth + kGapX),
                  kTop + static_cast<double>(i / columns) * (panelHeight + kGapY),
                  panelWidth,
                  panelHeight,
                  {0, curve.seconds.back()},
                  scaleOf(curve, 0.05)},
                 curve);
  }
  const double middle = (kTop + height - kBottom) / 2;
  svg += text((kLeft + width - kRight) / 2, height - 12, "text-anchor=\"middle\"", "time, s");
  svg += format(
      "<text transform=\"translate(18 %.1f) rotate(-90)\" text-anchor=\"middle\">position, "
      "rad</text>\n",
      middle);
  return svg + "</svg>\n";
}

}  // namespace joint_trace
