#include "body/JointModel.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace orvane::robot {
namespace {

constexpr double kLoadedAbove = 0.05;     // m above lying from which the legs carry everything
constexpr double kGroundSoftness = 0.02;  // m over which a leg takes its load
constexpr double kFreeInertia = 0.03;     // kg m^2, of a joint whose leg hangs in the air
constexpr double kLoadedInertia = 0.20;   // kg m^2, what a quarter of the robot adds
constexpr double kFriction = 0.3;         // N m s/rad

LegAngles anglesOf(const std::array<JointState, kJoints>& joints, std::size_t leg) {
  const std::size_t first = leg * kJointsPerLeg;
  return {joints[first].position, joints[first + 1].position, joints[first + 2].position};
}

}  // namespace

double shareOffTheBelly(double height) {
  return std::clamp((height - kLyingHeight) / kLoadedAbove, 0.0, 1.0);
}

Support supportOf(const std::array<JointState, kJoints>& joints) {
  std::array<double, kLegs> lengths{};
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    lengths[leg] = -footPosition(leg, anglesOf(joints, leg))[2];
  }
  std::array<double, kLegs> sorted = lengths;
  std::sort(sorted.begin(), sorted.end(), std::greater<>());
  Support support;
  support.height = std::max(sorted[2], kLyingHeight);

  double sum = 0;
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const double missing = (support.height - lengths[leg]) / kGroundSoftness;
    support.load[leg] = 1 - std::clamp(missing, 0.0, 1.0);
    sum += support.load[leg];
  }
  const double carried = shareOffTheBelly(support.height);
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    support.load[leg] *= sum > 0 ? carried / sum : 0;
    support.torques[leg] =
        supportTorques(leg, anglesOf(joints, leg), support.load[leg] * kBodyMass * kGravity);
  }
  return support;
}

void moveJoint(JointState& joint, const JointCommand& command, std::size_t number,
               const Support& support, double seconds) {
  const std::size_t leg = number / kJointsPerLeg;
  const JointLimit& range = kJointLimits[number % kJointsPerLeg];
  const double limit = std::clamp(command.maxTorque, 0.0, range.maxTorque);
  const double inertia = kFreeInertia + kLoadedInertia * kLegs * support.load[leg];
  const double weight = support.torques[leg][number % kJointsPerLeg];
  const double distance = command.position - joint.position;

  // inertia * (v - velocity) = seconds * (torque(v) - weight - kFriction * v), with the torque of
  // the step's end: there the distance is seconds * v less.
  double v = (inertia * joint.velocity + seconds * (command.torque + command.kp * distance +
                                                    command.kd * command.velocity - weight)) /
             (inertia + seconds * (kFriction + command.kd) + seconds * seconds * command.kp);
  double torque =
      command.torque + command.kp * (distance - seconds * v) + command.kd * (command.velocity - v);
  if (std::abs(torque) > limit) {
    torque = std::clamp(torque, -limit, limit);
    v = (inertia * joint.velocity + seconds * (torque - weight)) / (inertia + seconds * kFriction);
  }
  v = std::clamp(v, -kMaxJointSpeed, kMaxJointSpeed);
  const double position = std::clamp(joint.position + seconds * v, range.lower, range.upper);
  joint.velocity = (position - joint.position) / seconds;
  joint.position = position;
  joint.torque = torque;
  joint.maxTorque = limit;
}

}  // namespace orvane::robot
