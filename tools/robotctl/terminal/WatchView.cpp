#include "terminal/WatchView.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "core/Text.h"
#include "terminal/Gauges.h"

namespace robotctl {
namespace {

constexpr double kDegrees = 180 / std::numbers::pi;
constexpr int kJointsRow = 7;
constexpr int kLeastMotors = 12;  // so many rows are kept for joints that haven't been seen yet

/// Where things are on a screen of some size.
struct Layout {
  int tableColumns;
  int bar;  // columns of each of the four bars
  int motors;
  Area plan, happenings;
};

Layout layoutFor(const RobotModel& model, Size size) {
  Layout layout{};
  layout.motors = std::max(kLeastMotors, static_cast<int>(model.motorCount()));
  // Name and figures need 39 columns; the table takes what the plan doesn't, up to bars of 14.
  const int wanted = std::max(57, size.columns * 6 / 10);
  layout.bar = std::clamp((wanted - 37) / 4, 3, 14);
  layout.tableColumns = 37 + 4 * layout.bar;
  const int belowTable = kJointsRow + 1 + layout.motors;
  const bool wide = size.columns >= 110;
  layout.happenings = {0, belowTable + (size.rows > belowTable + 6 ? 1 : 0),
                       wide ? layout.tableColumns : size.columns, 0};
  layout.happenings.rows = size.rows - layout.happenings.row;
  layout.plan = {layout.tableColumns + 1, kJointsRow, size.columns - layout.tableColumns - 1,
                 wide ? size.rows - kJointsRow : layout.motors + 1};
  return layout;
}

void drawLink(Canvas& canvas, const RobotModel& model) {
  const bool lost = model.silent() || !model.answers;
  labelled(canvas, 1, canvas.size().columns, "Link", linkText(model),
           lost ? Style::kBad : Style::kGood);
}

void drawImu(Canvas& canvas, const RobotModel& model) {
  const int width = canvas.size().columns;
  if (!model.motion) {
    labelled(canvas, 5, width, "IMU", "unknown", Style::kFaint);
    return;
  }
  const orvane::RobotSdk::ObservedVector3 angles = model.motion->imu.euler;
  const orvane::RobotSdk::ObservedVector3 rates = model.motion->imu.gyro;
  const auto degrees = [](float value) {
    return figure(static_cast<double>(value) * kDegrees, 7, 1) + "°";
  };
  labelled(canvas, 5, width, "IMU",
           "roll" + degrees(angles.x) + " pitch" + degrees(angles.y) + " yaw" + degrees(angles.z) +
               "  rates" + figure(rates.x, 6, 2) + figure(rates.y, 6, 2) + figure(rates.z, 6, 2) +
               " rad/s",
           angles.error != 0 || rates.error != 0 ? Style::kWarning : Style::kPlain);
}

/// "!" an error of its own, "x" it doesn't answer, "-" it isn't driven.
char32_t motorFlag(const orvane::RobotSdk::ObservedMotor& motor) {
  if (motor.error != 0) return U'!';
  if (motor.online == 0) return U'x';
  return motor.enable == 0 ? U'-' : U' ';
}

Style temperatureStyle(float celsius) {
  return celsius >= 80 ? Style::kBad : celsius >= 60 ? Style::kWarning : Style::kGood;
}

void drawJoint(Canvas& canvas, int row, const Layout& layout, const std::string& name,
               const orvane::RobotSdk::ObservedMotor& motor) {
  const char32_t flag = motorFlag(motor);
  const bool faulty = flag == U'!' || flag == U'x';
  canvas.text(0, row, 9, name, faulty ? Style::kBad : Style::kPlain);
  canvas.put(9, row, flag, faulty ? Style::kBad : Style::kFaint);
  int column = 10;
  const auto signedValue = [&](double value, int width, int decimals, double limit, Style style) {
    column = canvas.text(column, row, figure(value, width, decimals)) + 1;
    signedBar(canvas, column, row, layout.bar, value, limit, style);
    column += layout.bar;
  };
  const float most = motor.maxTorque;
  signedValue(motor.position, 6, 2, std::numbers::pi, Style::kLabel);
  signedValue(motor.velocity, 6, 1, 10, Style::kGood);
  const double limit = std::isfinite(most) && most > 0 ? static_cast<double>(most) : 30;
  signedValue(motor.torque, 6, 1, limit, Style::kWarning);
  column = canvas.text(column, row, figure(motor.temp, 4, 0, false)) + 1;
  levelBar(canvas, column, row, layout.bar, static_cast<double>(motor.temp) / 100,
           temperatureStyle(motor.temp));
}

void drawJoints(Canvas& canvas, const Layout& layout, const RobotModel& model) {
  const int step = 7 + layout.bar;
  canvas.text(0, kJointsRow, "Joint", Style::kLabel);
  int column = 10;
  for (const char* title : {"  position", "  velocity", "  torque", "  °C"}) {
    canvas.text(column, kJointsRow, step, title, Style::kLabel);
    column += step;
  }
  const std::size_t motors = model.motorCount();
  for (std::size_t motor = 0; motor < motors; ++motor) {
    drawJoint(canvas, kJointsRow + 1 + static_cast<int>(motor), layout, model.jointName(motor),
              model.motion->motor[motor]);
  }
  if (motors == 0) canvas.text(0, kJointsRow + 1, "none seen yet", Style::kFaint);
}

}  // namespace

Canvas drawWatch(const RobotModel& model, Size size) {
  Canvas canvas(size);
  const int width = canvas.size().columns;
  const Layout layout = layoutFor(model, canvas.size());
  drawTitle(canvas, "watch", "q quits", model);
  drawLink(canvas, model);
  drawControl(canvas, 2, width, model);
  drawState(canvas, 3, width, model);
  drawBattery(canvas, 4, width, model);
  drawImu(canvas, model);
  drawOdometry(canvas, 6, width, model);
  drawJoints(canvas, layout, model);
  plan(canvas, layout.plan, model.path, model.sensor ? &model.sensor->odom : nullptr);
  if (model.silent()) fade(canvas, {0, 2, width, canvas.size().rows - 2});
  drawHappenings(canvas, layout.happenings, model);
  return canvas;
}

}  // namespace robotctl
