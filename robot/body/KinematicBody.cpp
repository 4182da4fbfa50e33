#include "body/KinematicBody.h"

#include <algorithm>
#include <cmath>

#include "body/Ease.h"
#include "body/JointModel.h"
#include "body/LegKinematics.h"
#include "body/Upkeep.h"

namespace orvane::robot {
namespace {

// How fast a velocity may change: when it grows, when it shrinks or turns round, and when the
// motors only damp. Linear in m/s^2, angular in rad/s^2.
struct Slew {
  double grow;
  double shrink;
  double damped;
};
constexpr Slew kLinearSlew{2.0, 4.0, 6.0};
constexpr Slew kAngularSlew{5.0, 8.0, 12.0};

constexpr double kRiseSpeed = 0.15;          // m/s
constexpr double kSinkSpeed = 0.25;          // m/s, when damped
constexpr double kHeightGain = 6.0;          // 1/s
constexpr double kHeightAcceleration = 1.0;  // m/s^2
constexpr double kFallSpeed = 3.0;           // m/s, the fastest that legs move the body
constexpr double kFoldSpeed = 1.5;           // rad/s, back from a pose that joints were led to

constexpr double kGaitRoll = 0.012;       // rad
constexpr double kGaitPitch = 0.008;      // rad
constexpr double kMoving = 1e-3;          // m/s or rad/s
constexpr double kStandstill = 0.005;     // m/s and rad/s
constexpr double kHeightReached = 0.004;  // m

constexpr double kDampingTorque = 0.25;  // N m per rad/s

bool standsStill(const Twist& velocity) {
  return std::abs(velocity.x) < kStandstill && std::abs(velocity.y) < kStandstill &&
         std::abs(velocity.yaw) < kStandstill;
}

double slewed(double value, double target, const Slew& slew, bool powered, double seconds) {
  const bool grows = value * target >= 0 && std::abs(target) > std::abs(value);
  const double rate = !powered ? slew.damped : grows ? slew.grow : slew.shrink;
  return approach(value, target, rate * seconds);
}

double wrapped(double angle) {
  const double result = std::remainder(angle, 2 * M_PI);
  return result <= -M_PI ? M_PI : result;
}

std::array<double, 4> quaternionOf(const Vector3& euler) {
  const double cr = std::cos(euler[0] / 2), sr = std::sin(euler[0] / 2);
  const double cp = std::cos(euler[1] / 2), sp = std::sin(euler[1] / 2);
  const double cy = std::cos(euler[2] / 2), sy = std::sin(euler[2] / 2);
  return {cr * cp * cy + sr * sp * sy, sr * cp * cy - cr * sp * sy, cr * sp * cy + sr * cp * sy,
          cr * cp * sy - sr * sp * cy};
}

}  // namespace

KinematicBody::KinematicBody(double chargePercent) : battery_(chargePercent) {
  state_.height = kLyingHeight;
  state_.position[2] = kLyingHeight;
  state_.imu.temperature = kAmbient + 10;
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const LegAngles angles = legAngles(leg, {0, sideOf(leg) * kGeometry.hipLength, -kLyingHeight});
    for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
      JointState& state = state_.joints[leg * kJointsPerLeg + joint];
      state.position = angles[joint];
      state.temperature = kAmbient;
      state.maxTorque = kJointLimits[joint].maxTorque;
    }
  }
  state_.battery = battery_.state();
  state_.imu.accel = {0, 0, kGravity};
  state_.imu.magnetic = magneticField({});
}

void KinematicBody::step(const BodyCommand& command, double seconds) {
  state_.powered = command.powered;
  if (command.joints != nullptr) {
    moveJoints(*command.joints, seconds);
    moveBase(command, seconds);
  } else {
    if (jointByJoint_) heightRate_ = 0;
    moveHeight(command, seconds);
    moveBase(command, seconds);
    moveLegs(seconds);
  }
  jointByJoint_ = command.joints != nullptr;
  state_.still = standsStill(state_.velocity);
  state_.down = state_.still && state_.height < kLyingHeight + kHeightReached;
  sense(seconds);
  battery_.draw(powerDrawn(state_), seconds);
  state_.battery = battery_.state();
}

void KinematicBody::moveHeight(const BodyCommand& command, double seconds) {
  const double target = command.powered ? command.height : kLyingHeight;
  const double speed = command.powered ? kRiseSpeed : kSinkSpeed;
  const double wanted = std::clamp(kHeightGain * (target - state_.height), -speed, speed);
  heightRate_ = approach(heightRate_, wanted, kHeightAcceleration * seconds);
  state_.height += heightRate_ * seconds;
  state_.position[2] = state_.height;
}

void KinematicBody::moveBase(const BodyCommand& command, double seconds) {
  const bool steps = command.powered && command.stepping && command.joints == nullptr;
  const Twist target = steps ? command.velocity : Twist{};
  Twist& velocity = state_.velocity;
  velocity.x = slewed(velocity.x, target.x, kLinearSlew, command.powered, seconds);
  velocity.y = slewed(velocity.y, target.y, kLinearSlew, command.powered, seconds);
  velocity.yaw = slewed(velocity.yaw, target.yaw, kAngularSlew, command.powered, seconds);

  state_.yaw = wrapped(state_.yaw + velocity.yaw * seconds);
  const double cosine = std::cos(state_.yaw), sine = std::sin(state_.yaw);
  previousWorldVelocity_ = state_.worldVelocity;
  state_.worldVelocity = {cosine * velocity.x - sine * velocity.y,
                          sine * velocity.x + cosine * velocity.y, heightRate_};
  for (std::size_t axis = 0; axis < 2; ++axis) {
    state_.position[axis] +=
        (previousWorldVelocity_[axis] + state_.worldVelocity[axis]) / 2 * seconds;
  }

  const bool moves = std::abs(velocity.x) > kMoving || std::abs(velocity.y) > kMoving ||
                     std::abs(velocity.yaw) > kMoving;
  gait_.step(steps || (command.powered && moves), seconds);
  stepHeight_ = approach(stepHeight_, command.stepHeight, 0.1 * seconds);
}

void KinematicBody::moveLegs(double seconds) {
  double loads = 0;
  for (std::size_t leg = 0; leg < kLegs; ++leg) loads += gait_.load(leg);
  const double carried = state_.powered ? shareOffTheBelly(state_.height) : 0.0;

  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const Vector3 hip = hipOf(leg);
    const double aside = sideOf(leg) * kGeometry.hipLength;
    const Twist& velocity = state_.velocity;
    const Vector3 offset = gait_.footOffset(leg, velocity.x - velocity.yaw * (hip[1] + aside),
                                            velocity.y + velocity.yaw * hip[0], stepHeight_);
    const LegAngles angles =
        legAngles(leg, {offset[0], aside + offset[1], offset[2] - state_.height});
    const LegAngles torques =
        supportTorques(leg, angles, carried * kBodyMass * kGravity * gait_.load(leg) / loads);
    for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
      JointState& state = state_.joints[leg * kJointsPerLeg + joint];
      double& left = poseOffset_[leg * kJointsPerLeg + joint];
      if (jointByJoint_) left = state.position - angles[joint];
      left = approach(left, 0, kFoldSpeed * seconds);
      const JointLimit& range = kJointLimits[joint];
      const double angle = std::clamp(angles[joint] + left, range.lower, range.upper);
      state.velocity = (angle - state.position) / seconds;
      state.position = angle;
      const double limit = range.maxTorque;
      const double damping = (state_.powered ? 1 : -1) * kDampingTorque * state.velocity;
      state.torque = std::clamp(torques[joint] + damping, -limit, limit);
      state.maxTorque = limit;
      warm(state, seconds);
    }
    state_.footPhase[leg] = gait_.activity() > 0 ? gait_.footPhase(leg) : 0;
  }
}

void KinematicBody::moveJoints(const JointCommands& commands, double seconds) {
  const Support support = supportOf(state_.joints);
  for (std::size_t index = 0; index < kJoints; ++index) {
    moveJoint(state_.joints[index], commands[index], index, support, seconds);
    warm(state_.joints[index], seconds);
  }
  const double height = supportOf(state_.joints).height;
  const double before = state_.height;
  state_.height = approach(before, height, kFallSpeed * seconds);
  state_.position[2] = state_.height;
  heightRate_ = (state_.height - before) / seconds;
  state_.footPhase = {};
}

void KinematicBody::sense(double seconds) {
  ImuState& imu = state_.imu;
  const double cycle = 2 * M_PI * gait_.phase();
  const Vector3 euler{gait_.activity() * kGaitRoll * std::sin(cycle),
                      gait_.activity() * kGaitPitch * std::sin(2 * cycle), state_.yaw};
  const double rollRate = (euler[0] - imu.euler[0]) / seconds;
  const double pitchRate = (euler[1] - imu.euler[1]) / seconds;
  const double yawRate = state_.velocity.yaw;
  const double cr = std::cos(euler[0]), sr = std::sin(euler[0]);
  const double cp = std::cos(euler[1]), sp = std::sin(euler[1]);
  imu.gyro = {rollRate - yawRate * sp, pitchRate * cr + yawRate * sr * cp,
              -pitchRate * sr + yawRate * cr * cp};
  imu.euler = euler;
  imu.quaternion = quaternionOf(euler);

  Vector3 force{0, 0, kGravity};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    force[axis] += (state_.worldVelocity[axis] - previousWorldVelocity_[axis]) / seconds;
  }
  imu.accel = intoBody(euler, force);
  imu.magnetic = magneticField(euler);
}

}  // namespace orvane::robot
