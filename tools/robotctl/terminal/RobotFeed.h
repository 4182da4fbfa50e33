#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "core/Robot.h"
#include "terminal/RobotModel.h"

namespace robotctl {

/// Keeps a RobotModel up to date: streams and events by the library's callbacks, the motion state
/// by asking twice a second on a thread of its own, so that a robot that doesn't answer holds
/// nobody up. When it answers again after a silence its streams are switched on again.
///
/// Threading: one thread uses it; `note` may be called from any. Make it before the Robot
/// connects, end it (or `stop`) before the Robot ends: the thread uses its client. Lock: Shared's
/// mutex alone, never held across a request.
///
/// The client has one last error for all its requests: whoever reads it while this asks may find
/// the code of a question, or none.
class RobotFeed {
 public:
  /// Whether the robot's last refusal, of whomever, is told of.
  enum class Refusals { kTold, kLeftOut };

  explicit RobotFeed(Refusals refusals = Refusals::kTold);
  ~RobotFeed();
  RobotFeed(const RobotFeed&) = delete;
  RobotFeed& operator=(const RobotFeed&) = delete;

  /// For Robot::connect.
  [[nodiscard]] RobotCallbacks callbacks() const;
  /// Switches the streams on, asks for the motors' names and begins to ask for the state. `robot`
  /// is connected. Throws what Robot throws.
  void start(Robot& robot);
  /// Waits for what is asked just now, two seconds at most.
  void stop();

  /// What is known now.
  [[nodiscard]] RobotModel snapshot();
  /// Adds a line to what happened.
  void note(const std::string& topic, const std::string& text, bool bad = false);
  /// Asks for the state as soon as possible.
  void askNow();

 private:
  struct Shared;

  void ask(Robot::Client& client);

  const std::shared_ptr<Shared> shared_;  // with the callbacks
  std::thread asking_;
};

}  // namespace robotctl
