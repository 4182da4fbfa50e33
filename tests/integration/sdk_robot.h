#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "VirtualRobot.h"
#include "sdk_process.h"
#include "sdk_support.h"

namespace sdk_test {

using orvane::robot::Posture;

/// A virtual robot in the test's own process, with a DDS context of its own, while this lives.
class LocalRobot {
 public:
  explicit LocalRobot(const std::string& deviceId) : robot_(settings(deviceId)) {
    std::string error;
    if (!robot_.start(error)) throw std::runtime_error("robot " + deviceId + ": " + error);
  }

  orvane::robot::RobotStatus status() const { return robot_.status(); }
  orvane::robot::RobotCore::Access access() const { return robot_.access(); }
  [[nodiscard]] bool reaches(Posture posture) const {
    return waitUntil([&] { return status().posture == posture; }, kLimitMs);
  }
  /// Carries out a scripted fault; false: it couldn't.
  [[nodiscard]] bool suffers(const std::string& fault) const {
    return robot_.faults().apply(fault).done;
  }
  /// Has the robot do something worth an event, without a client.
  void stir() const {
    using orvane::robot::Action;
    auto robot = access();
    const Posture posture = robot.motion().posture();
    const bool down = posture == Posture::kLying || posture == Posture::kDamped;
    static_cast<void>(
        robot.motion().start(down ? Action::kRecoveryStand : Action::kDisable, {}, robot.nowMs()));
  }

 private:
  static orvane::robot::RobotSettings settings(const std::string& deviceId) {
    orvane::robot::RobotSettings settings;
    settings.deviceId = deviceId;
    return settings;
  }

  mutable orvane::robot::VirtualRobot robot_;
};

/// A virtual robot as a process of its own, ready to serve.
class RobotProcess : public Process {
 public:
  explicit RobotProcess(const std::string& deviceId, const std::vector<std::string>& options = {})
      : Process(command({"--device-id", deviceId}, options)), deviceId_(deviceId) {
    if (!says("ready", kLimitMs)) throw std::runtime_error("robot " + deviceId + ": " + output());
  }

  /// What it answers to a scripted fault.
  [[nodiscard]] std::string tell(const std::string& fault) const {
    return answer({"tell", "--device-id", deviceId_}, fault);
  }
  /// The same on the robot board.
  [[nodiscard]] static std::string tellOnBoard(const std::string& fault) {
    return answer({"tell", "--board"}, fault);
  }

 private:
  static std::string answer(std::vector<std::string> words, const std::string& fault) {
    Process teller(command(std::move(words), {fault}));
    static_cast<void>(teller.finish(kLimitMs));
    return teller.output();
  }
  static std::vector<std::string> command(std::vector<std::string> words,
                                          const std::vector<std::string>& more) {
    words.insert(words.begin(), VIRTUAL_ROBOT);
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  const std::string deviceId_;
};

}  // namespace sdk_test
