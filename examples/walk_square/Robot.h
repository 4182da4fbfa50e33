#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "Console.h"
#include "Options.h"
#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"

namespace walk_square {

/// Something that the user must be told; the text says what and why.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The user pressed Ctrl-C.
class Interrupted : public std::exception {};

/// "3 (no answer from the robot)".
std::string errorText(std::uint32_t code);

/// What the library's callbacks have brought. They run on the library's threads; sharing the
/// ownership of this with them leaves no question of what must end before what.
struct Observations {
  std::mutex mutex;                 // guards everything below
  std::condition_variable changed;  // any of it has changed
  std::vector<std::string> devices;
  std::uint32_t state = 0;
  std::uint32_t code = 0;
  std::uint64_t motionSamples = 0;
  std::uint64_t sensorSamples = 0;
  float batteryPercent = 0;
  orvane::RobotSdk::ObservedOdometry odometry{};
  double walked = 0;  ///< metres, along the path in the plane
};

struct Pose {
  double x = 0;    ///< metres in the odometry's frame
  double y = 0;    ///< metres in the odometry's frame
  double yaw = 0;  ///< radians, counter-clockwise seen from above
};

/// One robot and this program's hold on it. Used by one thread; operations throw Failure or
/// Interrupted. The destructor stops the robot, gives control back and shuts the library down.
class Robot {
 public:
  Robot(const Options& options, std::shared_ptr<Console> console,
        std::function<bool()> interrupted);
  ~Robot();
  Robot(const Robot&) = delete;
  Robot& operator=(const Robot&) = delete;

  void find();
  void connect();
  void takeControl();
  void stand();
  void lieDown();
  void release();

  /// Metres per second forward and left, radians per second counter-clockwise. The robot brakes by
  /// itself when this isn't repeated within 0.7 s.
  void move(double forward, double left, double turn);
  void stop();
  [[nodiscard]] Pose pose() const;
  /// Waits for the next odometry, keeping the live line up to date.
  void waitForOdometry();

  void setActivity(std::string activity) { activity_ = std::move(activity); }
  void printTable() const;

 private:
  using Clock = std::chrono::steady_clock;

  /// Calls, and turns false into a Failure with the client's error.
  void demand(const char* name, const std::function<bool()>& call);
  /// The same for what goes to the robot and back; keeps the time.
  void request(const char* name, const std::function<bool()>& call);
  /// Waits until `met` holds (called with the observations locked). False when the time has run
  /// out.
  bool waitUntil(const std::function<bool(const Observations&)>& met, Clock::duration limit);
  void waitForPosture(const std::string& posture, Clock::duration limit);
  void checkStillInControl() const;
  void showLive();

  const Options options_;
  const std::shared_ptr<Console> console_;
  const std::function<bool()> interrupted_;
  const std::shared_ptr<Observations> observations_ = std::make_shared<Observations>();
  orvane::RobotSdk::IMotionSdkService* const service_;
  std::shared_ptr<orvane::RobotSdk::IMotionHighLevelClient> client_;
  std::string device_;
  std::string name_;  // for the user
  std::string lease_ = "none";
  std::string activity_;
  std::vector<double> requestMs_;
  bool controls_ = false;
};

}  // namespace walk_square
