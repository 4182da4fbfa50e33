#include "Pilot.h"

#include <algorithm>
#include <cmath>
#include <thread>

namespace low_level_stand {

using namespace orvane::RobotSdk;
using namespace std::chrono_literals;

namespace {

constexpr auto kPeriod = 1000000us / Pilot::kHertz;
constexpr float kStiffness = 120;  // N m/rad
constexpr float kDamping = 3;      // N m s/rad

constexpr std::uint32_t kFirstRecordMs = 5000;
constexpr std::uint32_t kRecordMs = 5;  // two periods and a half
constexpr auto kTakeLimit = 5s;
constexpr double kTakeSeconds = 0.3;  // at least: the motors may have been driven by the robot
// A first command must lie within 0.3 rad of where its joint is; this leaves room for its way
// there.
constexpr double kFirstReach = 0.2;  // rad
// When the motors count as lost.
constexpr auto kLongestGap = 90ms;    // between commands: after 100 ms the motors let go
constexpr auto kLongestSilence = 1s;  // of the robot
constexpr double kFurthestOff = 0.6;  // rad

}  // namespace

Pilot::Pilot(IMotionLowLevelClient& robot, const volatile std::sig_atomic_t& interrupted)
    : robot_(robot), interrupted_(interrupted) {}

void Pilot::find() {
  ObservedMotionRecord record{};
  if (!robot_.requireObserved(&record, kFirstRecordMs)) {
    throw std::runtime_error("could not see a robot: is one, or a simulator, running?");
  }
  read(record);
  commanded_ = seen_.position;
}

void Pilot::take() {
  find();
  next_ = Clock::now();
  const auto limit = next_ + kTakeLimit;
  for (int pass = 0; !seen_.driven || pass < kTakeSeconds * kHertz; ++pass) {
    if (Clock::now() > limit) {
      throw std::runtime_error(
          "could not take the motors: no command is carried out; robotctl status tells why");
    }
    // Nobody hears the first commands, as long as the connection comes up: joints may sink.
    if (furthest(seen_.position, commanded_) > kFirstReach) commanded_ = seen_.position;
    step(commanded_, {});
  }
}

void Pilot::lead(const Joints& target, double seconds) {
  const Joints from = commanded_;
  const int passes = std::max(1, static_cast<int>(seconds * kHertz));
  for (int pass = 1; pass <= passes;) {
    const double phase = M_PI * pass / passes;
    const double way = (1 - std::cos(phase)) / 2;
    const double speed = M_PI / seconds * std::sin(phase) / 2;
    Joints position{};
    Joints velocity{};
    for (std::size_t i = 0; i < kJoints; ++i) {
      position[i] = from[i] + way * (target[i] - from[i]);
      velocity[i] = speed * (target[i] - from[i]);
    }
    checkLed();
    if (step(position, velocity)) ++pass;
  }
}

Held Pilot::hold(double seconds) {
  Held held;
  const int passes = static_cast<int>(seconds * kHertz);
  for (int pass = 1; pass <= passes;) {
    checkLed();
    if (!step(commanded_, {})) continue;
    held.off = std::max(held.off, furthest(seen_.position, commanded_));
    held.tilt = std::max(held.tilt, seen_.tilt);
    held.tiltIsKnown = held.tiltIsKnown && seen_.tiltIsKnown;
    for (std::size_t i = 0; i < kJoints; ++i) {
      held.torque[i] += (seen_.torque[i] - held.torque[i]) / pass;
    }
    ++pass;
  }
  return held;
}

void Pilot::checkLed() const {
  const auto now = Clock::now();
  if (now - sentAt_ > kLongestGap) {
    throw MotorsLost("no command went out in time, this machine is too busy");
  }
  if (now - seenAt_ > kLongestSilence) throw MotorsLost("the robot is silent");
  if (furthest(seen_.position, commanded_) > kFurthestOff) {
    throw MotorsLost("they don't follow; robotctl status tells who else may have the robot");
  }
}

/// One command, and what the robot shows then, if it does; at the end of its period.
bool Pilot::step(const Joints& position, const Joints& velocity) {
  if (heedsInterrupt_ && interrupted_ != 0) throw Interrupted();
  const Joints torque = carryingTorques(position);
  LowLevelMotorRecord command{};
  command.motorNum = kJoints;
  for (std::size_t i = 0; i < kJoints; ++i) {
    command.motor[i] = {static_cast<float>(position[i]),
                        static_cast<float>(velocity[i]),
                        kStiffness,
                        kDamping,
                        static_cast<float>(torque[i]),
                        static_cast<std::uint16_t>(i / kJointsPerLeg),
                        static_cast<std::uint16_t>(i % kJointsPerLeg)};
  }
  if (robot_.publishMotorAction(&command, nullptr)) {
    sentAt_ = Clock::now();
    commanded_ = position;
  } else if (robot_.getState() != 3) {
    throw std::runtime_error("the motors' drive went off");
  }
  ObservedMotionRecord record{};
  const bool seen = robot_.requireObserved(&record, kRecordMs);
  if (seen) read(record);
  // A pass that is late delays the others, so that no joint has to catch up.
  next_ = std::max(next_ + kPeriod, Clock::now());
  std::this_thread::sleep_until(next_);
  return seen;
}

void Pilot::read(const ObservedMotionRecord& record) {
  Readings readings;
  readings.driven = true;
  std::array<bool, kJoints> known{};
  for (std::int32_t i = 0; i < std::min<std::int32_t>(+record.motorNum, kMaxMotors); ++i) {
    const ObservedMotor motor = record.motor[i];
    if (motor.limbsNo >= kLegs || motor.jointNo >= kJointsPerLeg) continue;
    const std::size_t joint = motor.limbsNo * kJointsPerLeg + motor.jointNo;
    known[joint] = std::isfinite(motor.position) && std::isfinite(motor.torque);
    readings.position[joint] = motor.position;
    readings.torque[joint] = motor.torque;
    readings.driven = readings.driven && motor.enable != 0;
  }
  if (!std::all_of(known.begin(), known.end(), [](bool is) { return is; })) {
    throw std::runtime_error("this robot doesn't show four legs of three joints");
  }
  const auto euler = record.imu.euler;
  readings.tilt = std::max(std::abs(euler.x), std::abs(euler.y));
  readings.tiltIsKnown = euler.error == 0 && std::isfinite(euler.x) && std::isfinite(euler.y);
  seen_ = readings;
  seenAt_ = Clock::now();
}

}  // namespace low_level_stand
