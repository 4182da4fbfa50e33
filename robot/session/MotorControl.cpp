#include "session/MotorControl.h"

#include <algorithm>
#include <cmath>

#include "body/JointModel.h"

namespace orvane::robot {
namespace {

using namespace Robot::Motion;
using RobotSdk::kMaxMotors;
using RobotSdk::LowLevelMotor;

// Gains with which the motors hold until they are told otherwise, and with which they damp.
constexpr double kHoldStiffness = 200;  // N m/rad
constexpr double kHoldDamping = 6;      // N m s/rad
constexpr double kDamping = 2;          // N m s/rad

// What a motor's driver takes.
constexpr double kMaxStiffness = 1000;  // N m/rad
constexpr double kMaxDamping = 100;     // N m s/rad

bool isJoint(const LowLevelMotor& motor) {
  return motor.limbsNo < kLegs && motor.jointNo < kJointsPerLeg;
}

std::size_t indexOf(const LowLevelMotor& motor) {
  return motor.limbsNo * kJointsPerLeg + motor.jointNo;
}

bool makesSense(const LowLevelMotor& motor) {
  return std::isfinite(motor.position) && std::isfinite(motor.velocity) &&
         std::isfinite(motor.torque) && std::isfinite(motor.kpGain) &&
         std::isfinite(motor.kdGain) && motor.kpGain >= 0 && motor.kdGain >= 0;
}

/// Within what joint and driver can do; `number` is the joint's.
JointCommand commandOf(const LowLevelMotor& motor, std::size_t number, double maxTorque) {
  const JointLimit& range = kJointLimits[number % kJointsPerLeg];
  JointCommand command;
  command.position = std::clamp<double>(motor.position, range.lower, range.upper);
  command.velocity = std::clamp<double>(motor.velocity, -kMaxJointSpeed, kMaxJointSpeed);
  command.kp = std::min<double>(motor.kpGain, kMaxStiffness);
  command.kd = std::min<double>(motor.kdGain, kMaxDamping);
  command.torque = std::clamp<double>(motor.torque, -range.maxTorque, range.maxTorque);
  command.maxTorque = maxTorque;
  return command;
}

}  // namespace

const char* textOf(RecordFate fate) noexcept {
  constexpr std::array<const char*, kRecordFates> kTexts{
      "",
      "not of the present session",
      "its number isn't above the last one's",
      "no such kind",
      "its motor count isn't 1 to 16",
      "the robot has no such limb or joint",
      "a figure that isn't finite, or a negative gain or limit",
      "the motors' drive is off",
      "a joint's first position lies more than 0.3 rad from where it is"};
  return kTexts[static_cast<std::size_t>(fate)];
}

const char* nameOf(MotorControl::Mode mode) noexcept {
  constexpr std::array<const char*, 4> kNames{"off", "holding", "following", "damping"};
  return kNames[static_cast<std::size_t>(mode)];
}

void MotorControl::begin(std::uint64_t id) {
  switchOff();
  session_ = id;
  lastNumber_ = 0;
  // What came in stays to be seen until there is another session.
  if (id != 0) counts_ = {};
  for (std::size_t joint = 0; joint < kJoints; ++joint) {
    limits_[joint] = kJointLimits[joint % kJointsPerLeg].maxTorque;
  }
}

void MotorControl::switchOn(const BodyState& body) {
  mode_ = Mode::kHolding;
  follows_ = {};
  for (std::size_t joint = 0; joint < kJoints; ++joint) {
    const JointState& now = body.joints[joint];
    joints_[joint] = {now.position, 0, kHoldStiffness, kHoldDamping, now.torque, limits_[joint]};
  }
}

void MotorControl::switchOff() {
  damp(Mode::kOff);
}

void MotorControl::damp(Mode mode) {
  mode_ = mode;
  follows_ = {};
  for (std::size_t joint = 0; joint < kJoints; ++joint) {
    joints_[joint] = {0, 0, 0, kDamping, 0, kJointLimits[joint % kJointsPerLeg].maxTorque};
  }
}

RecordFate MotorControl::take(const Record& record, const BodyState& body, std::uint64_t nowMs) {
  const RecordFate fate = judge(record, body, nowMs);
  if (fate == RecordFate::kTaken) return fate;
  ++counts_.refused;
  counts_.lastRefusal = fate;
  return fate;
}

RecordFate MotorControl::judge(const Record& record, const BodyState& body, std::uint64_t nowMs) {
  if (session_ == 0 || record.sessionId != session_) return RecordFate::kOtherSession;
  if (record.seq <= lastNumber_) return RecordFate::kOldNumber;
  counts_.lost += record.seq - lastNumber_ - 1;
  lastNumber_ = record.seq;
  const std::uint32_t count = record.motors.motorNum;
  if (record.kind == kMotorCommandWithTrailer && count == 0) {
    if (mode_ != Mode::kOff) damp(Mode::kDamping);  // a stop; it may follow the drive's end
    return RecordFate::kTaken;
  }
  if (record.kind == kRequireObserved) return RecordFate::kTaken;
  if (record.kind > kMotorCommandWithTrailer) return RecordFate::kUnknownKind;
  if (count < 1 || count > kMaxMotors) return RecordFate::kBadMotorCount;
  if (mode_ == Mode::kOff) return RecordFate::kDriveOff;
  if (!std::all_of(record.motors.motor, record.motors.motor + count, isJoint)) {
    return RecordFate::kUnknownMotor;
  }
  return record.kind == kMaxTorque ? limit(record) : command(record, body, nowMs);
}

RecordFate MotorControl::command(const Record& record, const BodyState& body, std::uint64_t nowMs) {
  const LowLevelMotor* const first = record.motors.motor;
  const LowLevelMotor* const last = first + record.motors.motorNum;
  if (!std::all_of(first, last, makesSense)) return RecordFate::kBadValue;
  const bool tooFar = std::any_of(first, last, [&](const LowLevelMotor& motor) {
    const std::size_t joint = indexOf(motor);
    return motor.kpGain > 0 && !follows_[joint] &&
           std::abs(motor.position - body.joints[joint].position) > kFirstReach;
  });
  if (tooFar) return RecordFate::kTooFar;
  for (const LowLevelMotor* motor = first; motor != last; ++motor) {
    const std::size_t joint = indexOf(*motor);
    joints_[joint] = commandOf(*motor, joint, limits_[joint]);
    if (motor->kpGain > 0) follows_[joint] = true;
  }
  mode_ = Mode::kFollowing;
  commandedMs_ = nowMs;
  ++counts_.commands;
  return RecordFate::kTaken;
}

RecordFate MotorControl::limit(const Record& record) {
  const LowLevelMotor* const first = record.motors.motor;
  const LowLevelMotor* const last = first + record.motors.motorNum;
  const auto isLimit = [](const LowLevelMotor& motor) {
    return std::isfinite(motor.torque) && motor.torque >= 0;
  };
  if (!std::all_of(first, last, isLimit)) return RecordFate::kBadValue;
  for (const LowLevelMotor* motor = first; motor != last; ++motor) {
    const std::size_t joint = indexOf(*motor);
    limits_[joint] = std::min<double>(motor->torque, kJointLimits[joint % kJointsPerLeg].maxTorque);
    if (mode_ != Mode::kDamping) joints_[joint].maxTorque = limits_[joint];
  }
  return RecordFate::kTaken;
}

BodyCommand MotorControl::step(std::uint64_t nowMs) {
  if (mode_ == Mode::kFollowing && nowMs >= commandedMs_ + kSilenceMs) damp(Mode::kDamping);
  BodyCommand command;
  command.powered = mode_ != Mode::kOff;
  command.joints = &joints_;
  return command;
}

}  // namespace orvane::robot
