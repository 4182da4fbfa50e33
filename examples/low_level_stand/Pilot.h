#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>

#include "Leg.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace low_level_stand {

/// What the robot shows of itself, joints in the order of Leg.h.
struct Readings {
  Joints position{};        ///< rad
  Joints torque{};          ///< N m
  double roll = 0;          ///< rad
  double pitch = 0;         ///< rad
  double accelZ = 0;        ///< m/s^2
  bool imuTrusted = false;  ///< of the three above
  bool driven = false;      ///< by all of their motors
};

/// How a movement ended.
enum class Outcome {
  kDone,
  kInterrupted,
  kLate,         ///< no command went out for so long that the motors let go
  kNotFollowed,  ///< a joint is far from where it is to be
  kNotTaken,     ///< nobody takes the commands
  kDriveOff,
  kSilent,      ///< the robot shows nothing any more
  kOtherRobot,  ///< it hasn't the twelve joints
};

/// Leads the twelve joints of one robot, 500 commands a second. Every function keeps the motors
/// commanded until it returns, and the next one has to follow within 90 ms. For one thread.
class Pilot {
 public:
  static constexpr std::uint32_t kHertz = 500;
  /// Told of each record that came.
  using Watch = std::function<void(const Readings&)>;

  /// Movements end as kInterrupted once `interrupted` isn't 0.
  Pilot(orvane::RobotSdk::IMotionLowLevelClient& robot,
        const volatile std::sig_atomic_t& interrupted);

  /// Finds the joints and holds each where it is until the motors have taken over. The drive has
  /// been switched on before.
  [[nodiscard]] Outcome take();
  /// Leads all joints smoothly from where they are held to `target`.
  [[nodiscard]] Outcome lead(const Joints& target, double seconds);
  [[nodiscard]] Outcome hold(double seconds, const Watch& watch);
  /// Lets `interrupted` stop nothing any more: for the way down.
  void goOnWhenInterrupted() { heedsInterrupt_ = false; }

  [[nodiscard]] const Readings& seen() const { return seen_; }

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] Outcome find();
  [[nodiscard]] Outcome step(const Joints& position, const Joints& velocity);
  [[nodiscard]] bool read(const orvane::RobotSdk::ObservedMotionRecord& record);
  [[nodiscard]] double furthestOff() const;

  orvane::RobotSdk::IMotionLowLevelClient& robot_;
  const volatile std::sig_atomic_t& interrupted_;
  bool heedsInterrupt_ = true;
  Readings seen_;
  Clock::time_point seenAt_;
  Joints commanded_{};
  Clock::time_point sentAt_;
  Clock::time_point next_;  // when the next command is due
};

/// The largest difference between two angles of one joint, rad.
[[nodiscard]] double furthest(const Joints& a, const Joints& b);

}  // namespace low_level_stand
