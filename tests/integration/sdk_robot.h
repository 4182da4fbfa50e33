#pragma once

#include <stdexcept>
#include <string>

#include "VirtualRobot.h"

namespace sdk_test {

/// A virtual robot in the test's own process, with a DDS context of its own, while this lives.
class LocalRobot {
 public:
  explicit LocalRobot(const std::string& deviceId) : robot_(settings(deviceId)) {
    std::string error;
    if (!robot_.start(error)) throw std::runtime_error("robot " + deviceId + ": " + error);
  }

  orvane::robot::RobotStatus status() const { return robot_.status(); }
  orvane::robot::RobotCore::Access access() const { return robot_.access(); }

 private:
  static orvane::robot::RobotSettings settings(const std::string& deviceId) {
    orvane::robot::RobotSettings settings;
    settings.deviceId = deviceId;
    return settings;
  }

  mutable orvane::robot::VirtualRobot robot_;
};

}  // namespace sdk_test
