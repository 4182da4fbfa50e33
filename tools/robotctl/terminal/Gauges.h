#pragma once

#include <string>

#include "terminal/Canvas.h"
#include "terminal/RobotModel.h"

/// Pieces of pictures. Values may be anything, NaN and infinity included.
namespace robotctl {

/// `value` right-aligned in `width` characters, with its sign when `sign`; "?" when it's no number
/// or too long.
[[nodiscard]] std::string figure(double value, int width, int decimals, bool sign = true);

/// A bar from its middle to the right (positive) or left, full at `limit`.
void signedBar(Canvas& canvas, int column, int row, int width, double value, double limit,
               Style style);
/// A bar from the left, full at 1.
void levelBar(Canvas& canvas, int column, int row, int width, double share, Style style);

struct Area {
  int column = 0;
  int row = 0;
  int columns = 0;
  int rows = 0;
};
/// Path and robot seen from above, x to the right and y up, all of it and at least a metre; and
/// how wide that is.
void plan(Canvas& canvas, Area area, const Path& path,
          const orvane::RobotSdk::ObservedOdometry* now);

/// "Control", then the text in `width` columns.
void labelled(Canvas& canvas, int row, int width, const std::string& label, const std::string& text,
              Style style = Style::kPlain);

// Rows that several views have.
void drawControl(Canvas& canvas, int row, int width, const RobotModel& model);
void drawState(Canvas& canvas, int row, int width, const RobotModel& model);
void drawBattery(Canvas& canvas, int row, int width, const RobotModel& model);
void drawOdometry(Canvas& canvas, int row, int width, const RobotModel& model);
/// The newest happenings, the newest at the bottom.
void drawHappenings(Canvas& canvas, Area area, const RobotModel& model);
/// What is there goes grey: it is old.
void fade(Canvas& canvas, Area area);
/// "robotctl watch   robot dog on lo", and the time of day.
void drawTitle(Canvas& canvas, const std::string& command, const std::string& keys,
               const RobotModel& model);
/// How the robot is heard: its rates, or for how long it has been silent.
[[nodiscard]] std::string linkText(const RobotModel& model);

inline constexpr int kLabelColumns = 10;

}  // namespace robotctl
