#pragma once

#include <string>

#include "terminal/Canvas.h"
#include "terminal/DeadMan.h"
#include "terminal/RobotModel.h"

namespace robotctl {

/// Whether a driving program may command its robot.
enum class Hold {
  kDriving,
  kSilent,  ///< the robot isn't heard; control may still be held
  kLost,    ///< control is lost; 't' takes it again
  kTaking,
};

/// What the driver should know beside the robot's own state.
struct DriveStatus {
  Hold hold = Hold::kDriving;
  std::string lost;   ///< what was lost and why; "" while driving
  Velocity velocity;  ///< what the robot was told last
  int speed = 1;      ///< tenths
  SpeedLimits limits;
};

/// The picture of `robotctl drive`. Complete from 80x24 on, like drawWatch.
[[nodiscard]] Canvas drawDrive(const RobotModel& model, const DriveStatus& drive, Size size);

}  // namespace robotctl
