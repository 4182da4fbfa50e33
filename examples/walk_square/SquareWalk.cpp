#include "SquareWalk.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>

namespace walk_square {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTopSpeed = 0.4;       // m/s
constexpr double kSlowestSpeed = 0.08;  // m/s
constexpr double kTopTurn = 0.8;        // rad/s
constexpr double kSlowestTurn = 0.1;    // rad/s
constexpr double kReached = 0.02;       // m
constexpr double kTurned = 0.02;        // rad
constexpr auto kStepLimit = std::chrono::seconds(15);

/// The same angle between -pi and pi.
double wrapped(double angle) {
  return std::remainder(angle, 2 * kPi);
}

/// `value` with its sign, its size between `least` and `most`.
double limited(double value, double least, double most) {
  return std::copysign(std::clamp(std::abs(value), least, most), value);
}

using Clock = std::chrono::steady_clock;

}  // namespace

double SquareWalk::run() {
  const Pose start = robot_.pose();
  Pose corner = start;
  for (int side = 0; side < 4; ++side) {
    const double heading = start.yaw + side * kPi / 2;
    robot_.setActivity("side " + std::to_string(side + 1) + " of 4");
    walkSide(corner, heading);
    // The next side begins where this one should have ended, so errors don't add up.
    corner.x += side_ * std::cos(heading);
    corner.y += side_ * std::sin(heading);
    robot_.setActivity("corner " + std::to_string(side + 1) + " of 4");
    turnTo(heading + kPi / 2);
  }
  robot_.stop();
  const Pose end = robot_.pose();
  return std::hypot(end.x - start.x, end.y - start.y);
}

void SquareWalk::walkSide(const Pose& start, double heading) {
  for (const auto deadline = Clock::now() + kStepLimit; Clock::now() < deadline;) {
    const Pose now = robot_.pose();
    const double dx = now.x - start.x;
    const double dy = now.y - start.y;
    const double left = side_ - (dx * std::cos(heading) + dy * std::sin(heading));
    const double aside = dy * std::cos(heading) - dx * std::sin(heading);
    if (left < kReached) return;
    const double turn = 2 * wrapped(heading - now.yaw);
    robot_.move(limited(left, kSlowestSpeed, kTopSpeed), std::clamp(-aside, -0.1, 0.1),
                std::clamp(turn, -kTopTurn, kTopTurn));
    robot_.waitForOdometry();
  }
  throw Failure("the robot didn't reach the end of a side within 15 s");
}

void SquareWalk::turnTo(double heading) {
  for (const auto deadline = Clock::now() + kStepLimit; Clock::now() < deadline;) {
    const double missing = wrapped(heading - robot_.pose().yaw);
    if (std::abs(missing) < kTurned) return;
    robot_.move(0, 0, limited(2 * missing, kSlowestTurn, kTopTurn));
    robot_.waitForOdometry();
  }
  throw Failure("the robot didn't turn a corner within 15 s");
}

}  // namespace walk_square
