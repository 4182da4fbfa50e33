#pragma once

#include "terminal/Canvas.h"
#include "terminal/RobotModel.h"

namespace robotctl {

/// The picture of `robotctl watch`. Complete from 80x24 on; a smaller screen shows its left upper
/// part, a larger one longer bars, a larger plan and more of what happened.
[[nodiscard]] Canvas drawWatch(const RobotModel& model, Size size);

}  // namespace robotctl
