#pragma once

#include <json/json.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvane/RobotSdk/Records.h"

namespace robotctl {

/// How often something has happened in the last two seconds.
class RateMeter {
 public:
  void count() { ++total_; }
  [[nodiscard]] std::uint64_t total() const { return total_; }
  /// Per second; 0 until two looks lie at least 50 ms apart.
  [[nodiscard]] double perSecond(std::uint64_t nowMs);

 private:
  struct Look {
    std::uint64_t atMs, total;
  };
  std::uint64_t total_ = 0;
  std::deque<Look> looks_;
};

/// Where the robot has been, in metres in the odometry's frame. However long it walks, the number
/// of points stays bounded: the path becomes coarser.
class Path {
 public:
  struct Point {
    float x, y;
    bool begins;  ///< it isn't known how the robot got here
  };
  static constexpr std::size_t kMostPoints = 2000;

  void add(const orvane::RobotSdk::ObservedOdometry& odometry);
  [[nodiscard]] const std::vector<Point>& points() const { return points_; }

 private:
  std::vector<Point> points_;
  float stepMetres_ = 0.01F;
  std::uint32_t epoch_ = 0;
};

/// Something that happened, for people.
struct Happening {
  std::uint64_t number;  ///< 1, 2, 3, ... in the order in which they came
  std::uint64_t atMs;
  std::string clock;  ///< local time of day, "12:34:56"
  std::string topic;  ///< the robot's own, or "control", "refused", "link", "log"
  std::string text;
  bool bad = false;
};

/// What is known of a robot at one moment: all that the views draw. Times are those of Clock.h; 0
/// means never.
struct RobotModel {
  std::string name;       ///< "robot dog"
  std::string interface;  ///< "" when DDS has chosen
  std::uint64_t nowMs = 0;
  std::string clock;  ///< local time of day

  Json::Value state;                 ///< the newest motion state document; null: none yet
  std::uint64_t stateMs = 0;         ///< when it came
  bool answers = false;              ///< the last question was answered
  std::uint64_t controlReports = 0;  ///< how often the library has told of control

  std::optional<orvane::RobotSdk::ObservedMotionRecord> motion;
  std::uint64_t motionMs = 0;
  double motionHz = 0;
  std::optional<orvane::RobotSdk::ObservedSensorRecord> sensor;
  std::uint64_t sensorMs = 0;
  double sensorHz = 0;

  std::vector<std::string> jointNames;
  Path path;
  std::deque<Happening> happenings;  ///< the newest last

  /// When anything came from the robot last.
  [[nodiscard]] std::uint64_t heardMs() const;
  /// Nothing has come for so long that a robot that is there would have been heard.
  [[nodiscard]] bool silent() const { return nowMs > heardMs() + kSilentMs; }
  /// An emergency stop is in force, as far as the robot has told.
  [[nodiscard]] bool emergencyStopped() const;
  /// Entries of `motion` that hold a motor.
  [[nodiscard]] std::size_t motorCount() const;
  [[nodiscard]] std::string jointName(std::size_t motor) const;

  static constexpr std::uint64_t kSilentMs = 1000;
};

/// "12:34:56", local time.
[[nodiscard]] std::string clockNow();

}  // namespace robotctl
