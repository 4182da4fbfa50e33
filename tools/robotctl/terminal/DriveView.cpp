#include "terminal/DriveView.h"

#include <algorithm>
#include <array>

#include "core/Text.h"
#include "terminal/Gauges.h"

namespace robotctl {
namespace {

constexpr int kVelocityRow = 7;
constexpr int kKeysRow = 12;
constexpr int kPlanColumn = 51;

void drawHold(Canvas& canvas, const RobotModel& model, const DriveStatus& drive) {
  const int width = canvas.size().columns;
  switch (drive.hold) {
    case Hold::kDriving:
      if (model.emergencyStopped()) {
        labelled(canvas, 1, width, "Drive", "emergency stop latched; r recovers", Style::kBad);
        return;
      }
      labelled(canvas, 1, width, "Drive", "in control; hold a key to walk", Style::kGood);
      return;
    case Hold::kSilent:
      labelled(canvas, 1, width, "Drive", drive.lost + "; nothing is sent", Style::kBad);
      return;
    case Hold::kLost:
      labelled(canvas, 1, width, "Drive", drive.lost + "; t takes it again", Style::kBad);
      return;
    case Hold::kTaking:
      labelled(canvas, 1, width, "Drive", "taking control ...", Style::kWarning);
      return;
  }
}

void drawVelocity(Canvas& canvas, const DriveStatus& drive) {
  struct Row {
    const char* label;
    float value;
    SpeedLimits::Range range;
    const char* unit;
  };
  const std::array<Row, 3> rows{{{"Forward", drive.velocity.forward, drive.limits.forward, "m/s"},
                                 {"Left", drive.velocity.left, drive.limits.left, "m/s"},
                                 {"Turn", drive.velocity.turn, drive.limits.turn, "rad/s"}}};
  int row = kVelocityRow;
  for (const Row& one : rows) {
    labelled(canvas, row, canvas.size().columns, one.label, figure(one.value, 6, 2));
    signedBar(canvas, kLabelColumns + 7, row, 20, one.value,
              std::max({static_cast<double>(one.range.most), -static_cast<double>(one.range.least),
                        0.01}),
              Style::kStrong);
    canvas.text(kLabelColumns + 28, row, one.unit, Style::kFaint);
    ++row;
  }
  labelled(canvas, row, canvas.size().columns, "Speed", format("%4d %%", 10 * drive.speed));
  levelBar(canvas, kLabelColumns + 7, row, 20, drive.speed / 10.0, Style::kLabel);
}

void drawKeys(Canvas& canvas) {
  static constexpr std::array<std::array<const char*, 4>, 6> kKeys{
      {{"w s", "forward, back", "u", "stands up"},
       {"a d", "turn left, right", "l", "lies down"},
       {"q e", "step left, right", "r", "recovers"},
       {"+ -", "faster, slower", "ESC x", "emergency stop"},
       {"space", "stops", "Ctrl-D", "ends"},
       {"t", "control again", "Ctrl-C", "breaks off"}}};
  int row = kKeysRow;
  for (const auto& [left, leftText, right, rightText] : kKeys) {
    canvas.text(0, row, left, Style::kStrong);
    canvas.text(7, row, leftText);
    canvas.text(26, row, right, Style::kStrong);
    canvas.text(34, row, rightText);
    ++row;
  }
}

}  // namespace

Canvas drawDrive(const RobotModel& model, const DriveStatus& drive, Size size) {
  Canvas canvas(size);
  const int width = canvas.size().columns;
  const int below = kKeysRow + 6;
  drawTitle(canvas, "drive", "let go to stop", model);
  drawHold(canvas, model, drive);
  const bool lost = model.silent() || !model.answers;
  labelled(canvas, 2, width, "Link", linkText(model), lost ? Style::kBad : Style::kPlain);
  drawControl(canvas, 3, width, model);
  drawState(canvas, 4, width, model);
  drawBattery(canvas, 5, width, model);
  drawOdometry(canvas, 6, width, model);
  if (model.silent()) fade(canvas, {0, 3, width, kVelocityRow - 3});
  drawVelocity(canvas, drive);
  drawKeys(canvas);
  const int planRows = width >= 110 ? canvas.size().rows - kVelocityRow : below - kVelocityRow;
  plan(canvas, {kPlanColumn, kVelocityRow, width - kPlanColumn, planRows}, model.path,
       model.sensor ? &model.sensor->odom : nullptr);
  drawHappenings(canvas,
                 {0, below, width >= 110 ? kPlanColumn - 1 : width, canvas.size().rows - below},
                 model);
  return canvas;
}

}  // namespace robotctl
