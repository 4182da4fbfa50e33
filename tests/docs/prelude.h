#pragma once

// In front of the documentation's fragments of C++ (check-docs).

#include <sched.h>
#include <sys/mman.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "orvane/RobotSdk/RobotSdk.h"

using namespace std::chrono_literals;
using namespace orvane::RobotSdk;

namespace documents {

inline void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::exit(1);
}

inline void until(const char* what, const std::function<bool()>& condition) {
  for (int i = 0; i < 400 && !condition(); ++i) std::this_thread::sleep_for(50ms);
  require(condition(), what);
}

inline std::string posture(IMotionHighLevelClient& robot) {
  std::string state;
  robot.queryMotionState(&state, 1000);
  const auto at = state.find("\"posture\":\"");
  return at == std::string::npos ? state
                                 : state.substr(at + 11, state.find('"', at + 11) - at - 11);
}

inline void untilPosture(IMotionHighLevelClient& robot, const std::string& wanted) {
  until(wanted.c_str(), [&] { return posture(robot) == wanted; });
}

/// The service on lo, ready; a client of the virtual robot, connected.
inline std::shared_ptr<IMotionHighLevelClient> connectedRobot() {
  IMotionSdkService* service = IMotionSdkService::instance();
  service->setNetworkInterface("lo");
  require(service->initial(nullptr, "documents", 0), "initialised");
  auto robot = IMotionHighLevelClient::create("VR-0001");
  require(robot != nullptr && robot->connect(5000), "connected");
  return robot;
}

/// The same, in control.
inline std::shared_ptr<IMotionHighLevelClient> controlledRobot() {
  auto robot = connectedRobot();
  require(robot->takeMotionControl(15000), "control asked for");
  until("in control", [&] { return robot->getState() == 2; });
  return robot;
}

/// No operation of the page's fragments failed.
template <class Client>
void nothingFailed(Client& robot) {
  const auto error = robot.getLastError();
  if (error != 0) std::fprintf(stderr, "error %u\n", error);
  require(error == 0, "nothing failed");
}

}  // namespace documents
