#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "core/Robot.h"
#include "terminal/DeadMan.h"
#include "terminal/DriveView.h"
#include "terminal/RobotFeed.h"

namespace robotctl {

/// What keys make of a robot that this program controls. Decides what is sent and when; knows no
/// terminal.
///
/// While a walking key is held its velocity is sent at once and then ten times a second; when the
/// last one is let go the robot is told to stop. When control is lost or the robot falls silent
/// nothing is sent any more, held keys are forgotten, and walking takes a new key press; only the
/// emergency stop is always tried. No request takes longer than kAnswerMs.
///
/// Used by one thread. The destructor stops a walk.
class DriveSession {
 public:
  static constexpr std::uint32_t kAnswerMs = 400;
  static constexpr std::uint64_t kRepeatMs = 100;

  /// The robot is connected and its control was taken.
  DriveSession(Robot& robot, RobotFeed& feed, SpeedLimits limits);
  ~DriveSession();
  DriveSession(const DriveSession&) = delete;
  DriveSession& operator=(const DriveSession&) = delete;

  /// A key; `late`: it waited while a request was under way, so it doesn't say what is wanted now
  /// unless it stops.
  void press(Key key, bool late = false);
  /// Sends what is due. `model` is the newest snapshot.
  void tick(const RobotModel& model);
  /// When `tick` is due at the latest, by Clock.h.
  [[nodiscard]] std::uint64_t deadlineMs() const;
  /// Lets go and stops the robot when it walks. Returns false when that couldn't be delivered.
  bool stop();

  [[nodiscard]] Hold hold() const { return status_.hold; }
  /// What was lost and why; "" while driving.
  [[nodiscard]] const std::string& lost() const { return status_.lost; }
  /// For the picture.
  [[nodiscard]] DriveStatus status() const;

 private:
  using Call = std::function<bool(Robot::Client&)>;
  enum class Outcome {
    kAccepted,
    kRefused,  ///< and the robot isn't walking
    kFailed,   ///< whether the robot carries it out isn't known
  };

  void judge(const RobotModel& model);
  void lose(Hold hold, const std::string& why);
  void sendWalk(std::uint64_t nowMs);
  /// One request; what kept it from being accepted was noted. A failed one may be followed by a
  /// question of the same length for the reason, unless it wasn't answered either.
  Outcome attempt(const char* name, const Call& call);
  void emergencyStop();
  void takeAgain();
  void judgeControl(const RobotModel& model);
  [[nodiscard]] bool mayWalk(std::uint64_t nowMs) const;

  Robot& robot_;
  RobotFeed& feed_;
  DeadMan deadMan_;
  DriveStatus status_;
  Velocity sent_;              // what the robot was told last
  bool walking_ = false;       // it was told to walk and not yet to stop
  std::uint64_t sentMs_ = 0;   // when
  std::uint64_t pauseMs_ = 0;  // after a refusal: no walking until then
  std::uint64_t reports_ = 0;  // about control, when it was asked for again
};

/// From the robot's capabilities; what they don't tell stays as it is in SpeedLimits.
[[nodiscard]] SpeedLimits limitsFrom(const Json::Value& capabilities);

}  // namespace robotctl
