#pragma once

#include "Robot.h"

namespace walk_square {

/// Walks a square counter-clockwise, each side and each corner closed on the robot's odometry.
class SquareWalk {
 public:
  SquareWalk(Robot& robot, double sideMetres) : robot_(robot), side_(sideMetres) {}

  /// Ends where and as it began. Returns how far from there, in metres.
  double run();

 private:
  void walkSide(const Pose& start, double heading);
  void turnTo(double heading);

  Robot& robot_;
  const double side_;
};

}  // namespace walk_square
