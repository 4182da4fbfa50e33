#include "session/MotorControl.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

#include "body/JointModel.h"
#include "body/LegKinematics.h"

namespace orvane::robot {
namespace {

using namespace Robot::Motion;
using RobotSdk::kMaxMotors;
using RobotSdk::LowLevelMotor;
using RobotSdk::LowLevelMotorRecord;

// Gains with which the motors hold until they are told otherwise.
constexpr double kHoldStiffness = 200;  // N m/rad
constexpr double kHoldDamping = 6;      // N m s/rad

// What a motor's driver takes.
constexpr double kMaxStiffness = 1000;  // N m/rad
constexpr double kMaxDamping = 100;     // N m s/rad

/// The entries that count; there are 1 to 16.
std::span<const LowLevelMotor> motorsOf(const LowLevelMotorRecord& record) {
  return {record.motor, record.motorNum};
}

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

RecordFate checkAddresses(std::span<const LowLevelMotor> motors) {
  std::array<bool, kJoints> named{};
  for (const LowLevelMotor& motor : motors) {
    if (!isJoint(motor)) return RecordFate::kUnknownMotor;
    if (std::exchange(named[indexOf(motor)], true)) return RecordFate::kMotorTwice;
  }
  return RecordFate::kTaken;
}

bool isCount(std::uint32_t count) {
  return count >= 1 && count <= kMaxMotors;
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
      "it names a motor twice",
      "a figure that isn't finite, or a negative gain or limit",
      "the motors' drive is off",
      "a joint's first position lies more than 0.3 rad from where it is",
      "another client commands the motors",
      "somebody holds high-level control",
      "the motors are a session's on the robot's board",
      "an emergency stop is latched; recoveryStand lifts it",
      "the robot is changing its posture"};
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
    joints_[joint] = {0, 0, 0, kBrakeDamping, 0, kJointLimits[joint % kJointsPerLeg].maxTorque};
  }
}

RecordFate MotorControl::take(const Record& record, const BodyState& body, std::uint64_t nowMs) {
  const RecordFate fate = judge(record, body, nowMs);
  if (fate != RecordFate::kTaken) counts_.refuse(fate);
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
  if (!isCount(count)) return RecordFate::kBadMotorCount;
  if (mode_ == Mode::kOff) return RecordFate::kDriveOff;
  if (record.kind == kMaxTorque) return limit(record.motors);
  const RecordFate fate = check(record.motors, body);
  if (fate != RecordFate::kTaken) return fate;
  follow(record.motors, nowMs);
  ++counts_.commands;
  return fate;
}

RecordFate MotorControl::check(const LowLevelMotorRecord& command, const BodyState& body) const {
  if (!isCount(command.motorNum)) return RecordFate::kBadMotorCount;
  const auto motors = motorsOf(command);
  const RecordFate fate = checkAddresses(motors);
  if (fate != RecordFate::kTaken) return fate;
  if (!std::all_of(motors.begin(), motors.end(), makesSense)) return RecordFate::kBadValue;
  const bool tooFar = std::any_of(motors.begin(), motors.end(), [&](const LowLevelMotor& motor) {
    const std::size_t joint = indexOf(motor);
    return motor.kpGain > 0 && !follows_[joint] &&
           std::abs(motor.position - body.joints[joint].position) > kFirstReach;
  });
  return tooFar ? RecordFate::kTooFar : RecordFate::kTaken;
}

void MotorControl::follow(const LowLevelMotorRecord& command, std::uint64_t nowMs) {
  for (const LowLevelMotor& motor : motorsOf(command)) {
    const std::size_t joint = indexOf(motor);
    joints_[joint] = commandOf(motor, joint, limits_[joint]);
    if (motor.kpGain > 0) follows_[joint] = true;
  }
  mode_ = Mode::kFollowing;
  commandedMs_ = nowMs;
}

RecordFate MotorControl::limit(const LowLevelMotorRecord& limits) {
  const auto motors = motorsOf(limits);
  const RecordFate fate = checkAddresses(motors);
  if (fate != RecordFate::kTaken) return fate;
  const auto isLimit = [](const LowLevelMotor& motor) {
    return std::isfinite(motor.torque) && motor.torque >= 0;
  };
  if (!std::all_of(motors.begin(), motors.end(), isLimit)) return RecordFate::kBadValue;
  for (const LowLevelMotor& motor : motors) {
    const std::size_t joint = indexOf(motor);
    limits_[joint] = std::min<double>(motor.torque, kJointLimits[joint % kJointsPerLeg].maxTorque);
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
