#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "Leg.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace low_level_stand {

/// The motors don't do what they are told: commands, or the robot's records, failed to come in
/// time, or a joint is far from where it is to be. take() takes them anew.
struct MotorsLost : std::runtime_error {
  explicit MotorsLost(const std::string& why) : std::runtime_error("lost the motors: " + why) {}
};

struct Interrupted : std::runtime_error {
  Interrupted() : std::runtime_error("interrupted") {}
};

/// What the robot showed while it was held.
struct Held {
  double off = 0;           ///< rad, the furthest that a joint was from where it is to be
  double tilt = 0;          ///< rad, the largest roll or pitch
  bool tiltIsKnown = true;  ///< in every record
  Joints torque{};          ///< N m, mean
};

/// Leads the twelve joints of one robot with 500 commands a second. A movement goes on with each
/// record that the robot sends: it never leads blindly, and a robot that shows itself less often, a
/// slow simulator say, it leads more slowly. Every function keeps the motors commanded until it
/// returns; the next one has to follow within 90 ms. Every function throws Interrupted once
/// `interrupted` isn't 0, and std::runtime_error when nothing more can be done with this robot. For
/// one thread.
class Pilot {
 public:
  static constexpr std::uint32_t kHertz = 500;

  Pilot(orvane::RobotSdk::IMotionLowLevelClient& robot,
        const volatile std::sig_atomic_t& interrupted);

  /// Holds each joint where it is until the motors have taken over. The drive has been switched on
  /// before.
  void take();
  /// Leads all joints smoothly from where they are held to `target` (rad). Throws MotorsLost.
  void lead(const Joints& target, double seconds);
  /// Holds all joints where they are led to. Throws MotorsLost.
  [[nodiscard]] Held hold(double seconds);
  /// Lets `interrupted` stop nothing any more: for the way down.
  void goOnWhenInterrupted() { heedsInterrupt_ = false; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Readings {
    Joints position{};  // rad
    Joints torque{};    // N m
    double tilt = 0;    // rad
    bool tiltIsKnown = false;
    bool driven = false;  // by all of their motors
  };

  void find();
  void checkLed() const;
  bool step(const Joints& position, const Joints& velocity);
  void read(const orvane::RobotSdk::ObservedMotionRecord& record);

  orvane::RobotSdk::IMotionLowLevelClient& robot_;
  const volatile std::sig_atomic_t& interrupted_;
  bool heedsInterrupt_ = true;
  Readings seen_;
  Clock::time_point seenAt_;
  Joints commanded_{};
  Clock::time_point sentAt_;
  Clock::time_point next_;  // when the next command is due
};

}  // namespace low_level_stand
