#include "terminal/Gauges.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "core/Documents.h"
#include "core/Text.h"

namespace robotctl {
namespace {

constexpr double kDegrees = 180 / std::numbers::pi;

/// A grid of dots, eight in a cell.
class Dots {
 public:
  Dots(int columns, int rows)
      : columns_(columns),
        rows_(rows),
        cells_(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {}

  [[nodiscard]] int width() const { return 2 * columns_; }
  [[nodiscard]] int height() const { return 4 * rows_; }

  void set(int x, int y) {
    static constexpr std::array<std::array<unsigned, 4>, 2> kBits{
        {{0x01, 0x02, 0x04, 0x40}, {0x08, 0x10, 0x20, 0x80}}};
    if (x < 0 || x >= width() || y < 0 || y >= height()) return;
    cell(x / 2, y / 4) |= kBits[static_cast<std::size_t>(x % 2)][static_cast<std::size_t>(y % 4)];
  }
  void line(double x0, double y0, double x1, double y1) {
    const double longest = std::max(std::abs(x1 - x0), std::abs(y1 - y0));
    const int steps = std::clamp(static_cast<int>(std::ceil(longest)), 1, 1000);
    for (int i = 0; i <= steps; ++i) {
      const double share = static_cast<double>(i) / steps;
      set(static_cast<int>(std::lround(x0 + (x1 - x0) * share)),
          static_cast<int>(std::lround(y0 + (y1 - y0) * share)));
    }
  }
  void draw(Canvas& canvas, int column, int row, Style style) const {
    for (int y = 0; y < rows_; ++y) {
      for (int x = 0; x < columns_; ++x) {
        const unsigned bits =
            cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(columns_) +
                   static_cast<std::size_t>(x)];
        if (bits != 0) canvas.put(column + x, row + y, 0x2800 + bits, style);
      }
    }
  }

 private:
  unsigned& cell(int x, int y) {
    return cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(columns_) +
                  static_cast<std::size_t>(x)];
  }

  int columns_, rows_;
  std::vector<unsigned> cells_;
};

/// Metres to dots.
struct Scale {
  double left, top;  // metres
  double metresPerDot;
  double insetX, insetY;  // dots

  [[nodiscard]] double x(double metres) const { return insetX + (metres - left) / metresPerDot; }
  [[nodiscard]] double y(double metres) const { return insetY + (top - metres) / metresPerDot; }
};

Scale scaleFor(const std::vector<Path::Point>& points, const Dots& dots) {
  double left = points.front().x, right = left, bottom = points.front().y, top = bottom;
  for (const Path::Point& point : points) {
    left = std::min<double>(left, point.x);
    right = std::max<double>(right, point.x);
    bottom = std::min<double>(bottom, point.y);
    top = std::max<double>(top, point.y);
  }
  const double across = dots.width() - 1, down = dots.height() - 1;
  const double metres =
      std::max({(right - left) / across, (top - bottom) / down, 1.0 / std::min(across, down)});
  return {left, top, metres, (across - (right - left) / metres) / 2,
          (down - (top - bottom) / metres) / 2};
}

char32_t arrow(double yaw) {
  static constexpr std::array kArrows{U'→', U'↗', U'↑', U'↖', U'←', U'↙', U'↓', U'↘'};
  if (!std::isfinite(yaw)) return U'?';
  const double eighths = std::remainder(yaw, 2 * std::numbers::pi) * 4 / std::numbers::pi;
  return kArrows[static_cast<std::size_t>((std::lround(eighths) + 8) % 8)];
}

std::string seconds(std::uint64_t sinceMs, std::uint64_t nowMs) {
  if (sinceMs == 0) return "never";
  return format("%.0f s", static_cast<double>(nowMs - std::min(nowMs, sinceMs)) / 1000);
}

}  // namespace

std::string figure(double value, int width, int decimals, bool sign) {
  std::string text = "?";
  if (std::isfinite(value) && std::abs(value) < 1e9) {
    text = format(sign ? "%+.*f" : "%.*f", decimals, value);
    // No "-0.0" for what is none.
    if (text[0] == '-' && text.find_first_of("123456789") == std::string::npos)
      text.replace(0, 1, sign ? "+" : "");
    if (static_cast<int>(text.size()) > width) text = "?";
  }
  return std::string(static_cast<std::size_t>(std::max(0, width - static_cast<int>(text.size()))),
                     ' ') +
         text;
}

void signedBar(Canvas& canvas, int column, int row, int width, double value, double limit,
               Style style) {
  // In halves of a cell; the middle is between two of them.
  const double share = std::isfinite(value) ? std::clamp(value / limit, -1.0, 1.0) : 0;
  const int halves = static_cast<int>(std::lround(share * width));
  const int first = std::min(width, width + halves), last = std::max(width, width + halves);
  for (int i = 0; i < width; ++i) {
    const bool left = 2 * i >= first && 2 * i < last;
    const bool right = 2 * i + 1 >= first && 2 * i + 1 < last;
    const char32_t glyph = left && right ? U'█' : left ? U'▌' : right ? U'▐' : U'·';
    canvas.put(column + i, row, glyph, left || right ? style : Style::kFaint);
  }
}

void levelBar(Canvas& canvas, int column, int row, int width, double share, Style style) {
  const double full = std::isfinite(share) ? std::clamp(share, 0.0, 1.0) : 0;
  const int eighths = static_cast<int>(std::lround(full * width * 8));
  for (int i = 0; i < width; ++i) {
    const int filled = std::clamp(eighths - 8 * i, 0, 8);
    // U+2588 is the full block, U+258F an eighth of it.
    const char32_t glyph = filled == 0 ? U'·' : 0x2588 + static_cast<char32_t>(8 - filled);
    canvas.put(column + i, row, glyph, filled > 0 ? style : Style::kFaint);
  }
}

void plan(Canvas& canvas, Area area, const Path& path,
          const orvane::RobotSdk::ObservedOdometry* now) {
  if (area.columns < 4 || area.rows < 3) return;
  Dots dots(area.columns, area.rows - 1);
  std::vector<Path::Point> points = path.points();
  const bool here = now != nullptr && now->valid != 0 && std::isfinite(now->position[0]) &&
                    std::isfinite(now->position[1]) && std::abs(now->position[0]) < 1e6F &&
                    std::abs(now->position[1]) < 1e6F;
  if (here) points.push_back({now->position[0], now->position[1], points.empty()});
  if (points.empty()) {
    canvas.text(area.column, area.row, area.columns, "path: no odometry", Style::kLabel);
    return;
  }
  const Scale scale = scaleFor(points, dots);
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Path::Point& from = points[points[i].begins ? i : i - 1];
    dots.line(scale.x(from.x), scale.y(from.y), scale.x(points[i].x), scale.y(points[i].y));
  }
  dots.draw(canvas, area.column, area.row + 1, Style::kPlain);
  if (here) {
    canvas.put(area.column + static_cast<int>(scale.x(points.back().x)) / 2,
               area.row + 1 + static_cast<int>(scale.y(points.back().y)) / 4, arrow(now->yaw),
               Style::kGood);
  }
  const double metres = scale.metresPerDot * dots.width();
  canvas.text(area.column, area.row, area.columns,
              "path, " + format(metres < 100 ? "%.1f" : "%.0f", metres) + " m across",
              Style::kLabel);
}

void labelled(Canvas& canvas, int row, int width, const std::string& label, const std::string& text,
              Style style) {
  canvas.text(0, row, std::min(width, kLabelColumns - 1), label, Style::kLabel);
  canvas.text(kLabelColumns, row, width - kLabelColumns, text, style);
}

std::string linkText(const RobotModel& model) {
  if (model.silent() || !model.answers) {
    return "doesn't answer; last state " + seconds(model.stateMs, model.nowMs) +
           (model.stateMs == 0 ? ", motion " : " ago, motion ") +
           seconds(model.motionMs, model.nowMs) + ", sensor " +
           seconds(model.sensorMs, model.nowMs);
  }
  return format("motion %.0f Hz, sensor %.0f Hz", model.motionHz, model.sensorHz);
}

void drawControl(Canvas& canvas, int row, int width, const RobotModel& model) {
  const std::string holder = describeHolder(model.state);
  if (model.state.isNull()) {
    labelled(canvas, row, width, "Control", "unknown", Style::kFaint);
  } else if (holder.empty()) {
    labelled(canvas, row, width, "Control", "nobody has it");
  } else {
    labelled(canvas, row, width, "Control", holder, Style::kStrong);
  }
}

void drawState(Canvas& canvas, int row, int width, const RobotModel& model) {
  const std::string posture = textAt(model.state, "posture");
  const bool stopped = flagAt(model.state, "emergencyStop") || posture == "fallen";
  const auto speed = [&](const char* path) {
    return figure(numberAt(model.state, path).value_or(NAN), 5, 2);
  };
  labelled(canvas, row, width, "State", posture.empty() ? "unknown" : posture,
           stopped ? Style::kBad : Style::kStrong);
  const int column = kLabelColumns + std::max<int>(15, static_cast<int>(posture.size()) + 2);
  canvas.text(column, row, width - column,
              "forward " + speed("velocity.lineVelocityX") + "  left " +
                  speed("velocity.lineVelocityY") + " m/s  turn " + speed("velocity.velocity") +
                  " rad/s");
}

void drawBattery(Canvas& canvas, int row, int width, const RobotModel& model) {
  if (!model.motion) {
    labelled(canvas, row, width, "Battery", "unknown", Style::kFaint);
    return;
  }
  const orvane::RobotSdk::ObservedPower power = model.motion->power;
  labelled(canvas, row, width, "Battery", "");
  const Style style = power.power < 10   ? Style::kBad
                      : power.power < 25 ? Style::kWarning
                                         : Style::kGood;
  levelBar(canvas, kLabelColumns, row, 14, static_cast<double>(power.power) / 100, style);
  canvas.text(kLabelColumns + 15, row, width - kLabelColumns - 15,
              figure(power.power, 3, 0, false) + " %  " + figure(power.chargeVoltage, 5, 1, false) +
                  " V " + figure(power.chargeCurrent, 6, 1) + " A " +
                  figure(power.temper, 4, 0, false) + " °C  health " +
                  figure(power.health, 3, 0, false) + " %");
}

void drawOdometry(Canvas& canvas, int row, int width, const RobotModel& model) {
  if (!model.sensor || model.sensor->odom.valid == 0) {
    labelled(canvas, row, width, "Odometry", "unknown", Style::kFaint);
    return;
  }
  const orvane::RobotSdk::ObservedOdometry& odometry = model.sensor->odom;
  labelled(canvas, row, width, "Odometry",
           "x" + figure(odometry.position[0], 8, 2) + "  y" + figure(odometry.position[1], 8, 2) +
               "  z" + figure(odometry.position[2], 6, 2) + " m   yaw" +
               figure(static_cast<double>(odometry.yaw) * kDegrees, 7, 1) + "°  turn" +
               figure(odometry.yawSpeed, 6, 2) + " rad/s");
}

void drawHappenings(Canvas& canvas, Area area, const RobotModel& model) {
  const auto& all = model.happenings;
  const int shown = std::min(area.rows, static_cast<int>(all.size()));
  for (int i = 0; i < shown; ++i) {
    const Happening& one = all[all.size() - static_cast<std::size_t>(shown - i)];
    const int row = area.row + i;
    const int end = area.column + area.columns;
    int column = canvas.text(area.column, row, area.columns, one.clock, Style::kFaint) + 1;
    column =
        canvas.text(column, row, end - column, one.topic, one.bad ? Style::kBad : Style::kLabel) +
        1;
    canvas.text(column, row, end - column, one.text, one.bad ? Style::kWarning : Style::kPlain);
  }
}

void fade(Canvas& canvas, Area area) {
  for (int row = area.row; row < area.row + area.rows && row < canvas.size().rows; ++row) {
    for (int column = area.column;
         column < area.column + area.columns && column < canvas.size().columns; ++column) {
      canvas.put(column, row, canvas.at(column, row).glyph, Style::kFaint);
    }
  }
}

void drawTitle(Canvas& canvas, const std::string& command, const std::string& keys,
               const RobotModel& model) {
  const int width = canvas.size().columns;
  canvas.band(0, Style::kTitle);
  const std::string where = model.interface.empty() ? "" : " on " + model.interface;
  canvas.text(1, 0, width - 10, "robotctl " + command + "  " + model.name + where + "    " + keys,
              Style::kTitle);
  canvas.text(width - 9, 0, model.clock, Style::kTitle);
}

}  // namespace robotctl
