// Finds a robot and walks it for two seconds. README.md goes through it step by step.
#include <cstdio>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"

using namespace std::chrono_literals;
using namespace orvane::RobotSdk;

// Looks ten times a second until `condition` holds; gives up after 20 seconds.
bool eventually(const std::function<bool()>& condition) {
  for (int i = 0; i < 200 && !condition(); ++i) std::this_thread::sleep_for(100ms);
  return condition();
}

// Returns the step that failed, or null.
const char* walk(IMotionHighLevelClient& robot) {
  const auto postureIs = [&](const char* posture) {
    std::string state;
    return robot.queryMotionState(&state, 1000) && state.find(posture) != std::string::npos;
  };
  if (!robot.connect(5000)) return "connect";
  if (!robot.takeMotionControl(15000)) return "ask for control";
  if (!eventually([&] { return robot.getState() == 2; })) return "get control";
  if (!robot.standing(1000)) return "stand up";
  if (!eventually([&] { return postureIs("\"standing\""); })) return "be standing";
  for (int i = 0; i < 10; ++i) {  // the robot stops by itself when no command comes for a second
    if (!robot.velocityMove(0.3F, 0, 0, 1000)) return "walk";
    std::this_thread::sleep_for(200ms);
  }
  if (!robot.laying(1000)) return "lie down";
  if (!eventually([&] { return postureIs("\"lying\""); })) return "be lying";
  return robot.releaseMotionControl() ? nullptr : "release";
}

int main(int argc, char** argv) {
  IMotionSdkService* service = IMotionSdkService::instance();
  service->setNetworkInterface(argc > 1 ? argv[1] : "lo");
  std::promise<std::string> device;
  std::once_flag first;
  service->attachRobotDiscoverCallback([&](const std::string& deviceNo, const std::string&) {
    std::call_once(first, [&] { device.set_value(deviceNo); });
  });
  const char* failed = "find a robot";
  if (service->initial(nullptr, "minimal", 0) && service->discoverRobotDevice(5000)) {
    auto found = device.get_future();
    if (found.wait_for(5s) == std::future_status::ready) {
      const auto robot = IMotionHighLevelClient::create(found.get());
      failed = robot ? walk(*robot) : "make a client";
      if (robot && failed) std::fprintf(stderr, "error %u: ", robot->getLastError());
    }
  }
  service->shutdown();
  if (failed != nullptr) std::fprintf(stderr, "could not %s\n", failed);
  return failed == nullptr ? 0 : 1;
}
