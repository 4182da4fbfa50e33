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
constexpr double kFirstReach = 0.2;      // rad
constexpr double kFollowed = 0.6;        // rad; further off is a joint that doesn't follow
constexpr auto kLongestGap = 90ms;       // between commands: after 100 ms the motors let go
constexpr auto kLongestSilence = 500ms;  // of the robot

}  // namespace

double furthest(const Joints& a, const Joints& b) {
  double most = 0;
  for (std::size_t i = 0; i < kJoints; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

Pilot::Pilot(IMotionLowLevelClient& robot, const volatile std::sig_atomic_t& interrupted)
    : robot_(robot), interrupted_(interrupted) {}

Outcome Pilot::find() {
  ObservedMotionRecord record{};
  if (!robot_.requireObserved(&record, kFirstRecordMs)) return Outcome::kSilent;
  if (!read(record)) return Outcome::kOtherRobot;
  commanded_ = seen_.position;
  return Outcome::kDone;
}

Outcome Pilot::take() {
  if (const Outcome found = find(); found != Outcome::kDone) return found;
  sentAt_ = next_ = Clock::now();
  const auto limit = Clock::now() + kTakeLimit;
  for (int pass = 0; !seen_.driven || pass < kTakeSeconds * kHertz; ++pass) {
    if (Clock::now() > limit) return Outcome::kNotTaken;
    // Nobody hears the first commands, as long as the connection comes up: joints may sink.
    if (furthestOff() > kFirstReach) commanded_ = seen_.position;
    const Outcome outcome = step(commanded_, {});
    if (outcome == Outcome::kLate) {
      sentAt_ = Clock::now();  // still a first command
    } else if (outcome != Outcome::kDone) {
      return outcome;
    }
  }
  return Outcome::kDone;
}

Outcome Pilot::lead(const Joints& target, double seconds) {
  const Joints from = commanded_;
  const int passes = std::max(1, static_cast<int>(seconds * kHertz));
  for (int pass = 1; pass <= passes; ++pass) {
    const double phase = M_PI * pass / passes;
    const double way = (1 - std::cos(phase)) / 2;
    const double speed = M_PI / seconds * std::sin(phase) / 2;
    Joints position{};
    Joints velocity{};
    for (std::size_t i = 0; i < kJoints; ++i) {
      position[i] = from[i] + way * (target[i] - from[i]);
      velocity[i] = speed * (target[i] - from[i]);
    }
    const Outcome outcome = step(position, velocity);
    if (outcome != Outcome::kDone) return outcome;
    if (furthestOff() > kFollowed) return Outcome::kNotFollowed;
  }
  return Outcome::kDone;
}

Outcome Pilot::hold(double seconds, const Watch& watch) {
  const int passes = static_cast<int>(seconds * kHertz);
  for (int pass = 0; pass < passes; ++pass) {
    const auto before = seenAt_;
    const Outcome outcome = step(commanded_, {});
    if (outcome != Outcome::kDone) return outcome;
    if (seenAt_ != before) watch(seen_);
    if (furthestOff() > kFollowed) return Outcome::kNotFollowed;
  }
  return Outcome::kDone;
}

Outcome Pilot::step(const Joints& position, const Joints& velocity) {
  if (heedsInterrupt_ && interrupted_ != 0) return Outcome::kInterrupted;
  const auto now = Clock::now();
  if (now - sentAt_ > kLongestGap) return Outcome::kLate;
  if (now - seenAt_ > kLongestSilence) return Outcome::kSilent;

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
    sentAt_ = now;
    commanded_ = position;
  } else if (robot_.getState() != 3) {
    return Outcome::kDriveOff;
  }
  ObservedMotionRecord record{};
  if (robot_.requireObserved(&record, kRecordMs) && !read(record)) return Outcome::kOtherRobot;
  // A pass that is late delays the others, so that no joint has to catch up.
  next_ = std::max(next_ + kPeriod, Clock::now());
  std::this_thread::sleep_until(next_);
  return Outcome::kDone;
}

bool Pilot::read(const ObservedMotionRecord& record) {
  Readings readings;
  readings.driven = true;
  std::array<bool, kJoints> known{};
  for (std::int32_t i = 0; i < std::min<std::int32_t>(+record.motorNum, kMaxMotors); ++i) {
    const ObservedMotor motor = record.motor[i];
    if (motor.limbsNo >= kLegs || motor.jointNo >= kJointsPerLeg) return false;
    const std::size_t joint = motor.limbsNo * kJointsPerLeg + motor.jointNo;
    known[joint] = true;
    readings.position[joint] = motor.position;
    readings.torque[joint] = motor.torque;
    readings.driven = readings.driven && motor.enable != 0;
  }
  const ObservedImu imu = record.imu;
  readings.roll = imu.euler.x;
  readings.pitch = imu.euler.y;
  readings.accelZ = imu.accel.z;
  readings.imuTrusted = imu.euler.error == 0 && imu.accel.error == 0;
  seen_ = readings;
  seenAt_ = Clock::now();
  return std::all_of(known.begin(), known.end(), [](bool is) { return is; });
}

double Pilot::furthestOff() const {
  return furthest(seen_.position, commanded_);
}

}  // namespace low_level_stand
