#include "physics/PhysicsBody.h"

#include <algorithm>
#include <cmath>

#include "body/LegKinematics.h"
#include "body/Upkeep.h"
#include "locomotion/Attitude.h"
#include "physics/Model.h"

namespace orvane::robot {
namespace {

constexpr double kFallenTilt = 1.0;     // rad
constexpr double kLyingTilt = 0.35;     // rad, from which it doesn't lie on its belly
constexpr double kFootAstray = 0.15;    // m from where it rests: that leg isn't under the body
constexpr double kQuietSpeed = 0.05;    // m/s
constexpr double kQuietRate = 0.15;     // rad/s
constexpr double kQuietJoint = 0.5;     // rad/s
constexpr double kQuietSeconds = 0.15;  // for that long
constexpr double kAstraySeconds = 1;    // without power, before it counts as fallen
constexpr double kDownHeight = 0.05;    // m above kLyingHeight: the belly is about on the ground

bool legsAreUnder(const Estimate& seen) {
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const Vector3 rest = Trot::rest(leg);
    const Vector3& foot = seen.feet[leg];
    if (std::hypot(foot[0] - rest[0], foot[1] - rest[1]) > kFootAstray) return false;
  }
  return true;
}

}  // namespace

PhysicsBody::PhysicsBody(double chargePercent, const Variation& variation)
    : world_(variation), battery_(chargePercent) {
  for (JointState& joint : state_.joints) joint.temperature = kAmbient;
  state_.imu.temperature = kAmbient + 10;
  state_.battery = battery_.state();
  step(BodyCommand{}, kPhysicsStep);
}

void PhysicsBody::step(const BodyCommand& command, double seconds) {
  due_ += seconds;
  while (due_ >= kPhysicsStep * 0.999) {
    due_ -= kPhysicsStep;
    const JointCommands& own = locomotion_.step(command, world_.readings(), kPhysicsStep);
    const JointCommands& commands = command.joints != nullptr ? *command.joints : own;
    world_.step(commands, command.powered);
    show(command, commands, kPhysicsStep);
    judge(kPhysicsStep);
  }
  battery_.draw(powerDrawn(state_), seconds);
  state_.battery = battery_.state();
}

void PhysicsBody::show(const BodyCommand& command, const JointCommands& commands, double seconds) {
  const Readings& readings = world_.readings();
  const Estimate& seen = locomotion_.seen();
  state_.powered = command.powered;
  state_.height = seen.height;
  state_.position = seen.position;
  const double yaw = seen.yaw;
  const Vector3& level = seen.velocity;
  state_.velocity = {level[0], level[1], toLevel(seen.euler[0], seen.euler[1], seen.rates)[2]};
  state_.worldVelocity = {std::cos(yaw) * level[0] - std::sin(yaw) * level[1],
                          std::sin(yaw) * level[0] + std::cos(yaw) * level[1], level[2]};
  state_.yaw = yaw;
  for (std::size_t index = 0; index < kJoints; ++index) {
    JointState& joint = state_.joints[index];
    joint.position = readings.position[index];
    joint.velocity = readings.velocity[index];
    joint.torque = readings.torque[index];
    const double most = kJointLimits[index % kJointsPerLeg].maxTorque;
    joint.maxTorque =
        command.joints != nullptr ? std::clamp(commands[index].maxTorque, 0.0, most) : most;
    warm(joint, seconds);
  }
  for (std::size_t leg = 0; leg < kLegs; ++leg) state_.footPhase[leg] = locomotion_.footPhase(leg);
  ImuState& imu = state_.imu;
  imu.accel = readings.accel;
  imu.gyro = readings.gyro;
  imu.quaternion = readings.attitude;
  imu.euler = eulerOf(readings.attitude);
  imu.magnetic = magneticField(imu.euler);
}

void PhysicsBody::judge(double seconds) {
  const Estimate& seen = locomotion_.seen();
  const Vector3& velocity = seen.velocity;
  bool quiet = !locomotion_.stepping() && std::hypot(velocity[0], velocity[1]) < kQuietSpeed &&
               std::hypot(seen.rates[0], seen.rates[1], seen.rates[2]) < kQuietRate;
  for (const JointState& joint : state_.joints) {
    quiet = quiet && std::abs(joint.velocity) < kQuietJoint;
  }
  quietSeconds_ = quiet ? quietSeconds_ + seconds : 0;
  state_.still = quietSeconds_ >= kQuietSeconds;
  const double tilt = std::max(std::abs(seen.euler[0]), std::abs(seen.euler[1]));
  const bool couldRise =
      tilt < kLyingTilt && state_.height < kLyingHeight + kDownHeight && legsAreUnder(seen);
  state_.down = state_.still && couldRise && (!locomotion_.recovering() || locomotion_.recovered());
  const bool astray = !state_.powered && !couldRise && quietSeconds_ >= kAstraySeconds;
  state_.fallen = tilt > kFallenTilt || astray;
}

}  // namespace orvane::robot
