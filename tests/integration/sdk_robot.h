#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "VirtualRobot.h"
#include "sdk_process.h"
#include "sdk_support.h"

namespace sdk_test {

using orvane::robot::BodyKind;
using orvane::robot::Posture;

/// A virtual robot in the test's own process, with a DDS context of its own, while this lives.
class LocalRobot {
 public:
  explicit LocalRobot(const std::string& deviceId, BodyKind body = BodyKind::kKinematic)
      : robot_(settings(deviceId, body)) {
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
  /// A bad driver of its joints throws the robot over. With physics only.
  [[nodiscard]] bool falls() const {
    constexpr std::uint64_t kDriver = 1;  // no DDS writer has it
    const bool refused =
        access().motion().start(orvane::robot::Action::kStanding, {}, nowMs()).has_value();
    if (refused || !reaches(Posture::kStanding)) return false;
    orvane::msg::dds_::MotionCtrl_ command{};
    command.motorNum = 12;
    for (std::uint32_t i = 0; i < 12; ++i) {
      command.motor[i].header = {i / 3, i % 3};
      command.motor[i].position = static_cast<float>(access().body().joints[i].position);
      command.motor[i].kpGain = 300;
      command.motor[i].kdGain = 4;
    }
    return waitUntil(
        [&] {
          if (access().take(command, kDriver) == orvane::robot::RecordFate::kTaken) {
            // Left legs stretched, right ones drawn in.
            constexpr float kThrown[] = {-0.6F, 0.35F, -0.7F, 0.9F, 1.5F, -2.75F};
            for (std::size_t i = 0; i < 12; ++i) command.motor[i].position = kThrown[i % 6];
          }
          return status().posture == Posture::kFallen || access().body().fallen;
        },
        kLimitMs);
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
  static orvane::robot::RobotSettings settings(const std::string& deviceId, BodyKind body) {
    orvane::robot::RobotSettings settings;
    settings.deviceId = deviceId;
    settings.body = body;
    return settings;
  }

  mutable orvane::robot::VirtualRobot robot_;
};

/// A virtual robot as a process of its own, ready to serve. Its body is kinematic unless the
/// options say another: what tests of the library time shouldn't depend on how a robot balances.
class RobotProcess : public Process {
 public:
  explicit RobotProcess(const std::string& deviceId, const std::vector<std::string>& options = {})
      : Process(command({"--device-id", deviceId}, withBody(options))), deviceId_(deviceId) {
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
  static std::vector<std::string> withBody(std::vector<std::string> options) {
    if (std::find(options.begin(), options.end(), "--body") == options.end()) {
      options.insert(options.end(), {"--body", "kinematic"});
    }
    return options;
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
