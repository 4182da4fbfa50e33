// sdk_client SCENARIO DEVICE [LEASE_MS]: an application in control of a robot that ends in one of
// the ways in which applications end. Prints "state S C" for each connect callback and "in control"
// before it begins to end. The client is alive in a static object until the process ends.

#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"

namespace {

using orvane::RobotSdk::IMotionHighLevelClient;
using orvane::RobotSdk::IMotionSdkService;

std::shared_ptr<IMotionHighLevelClient> robot;

struct Progress {
  std::mutex mutex;
  std::condition_variable changed;
  std::uint32_t state = 0;
  bool observed = false;
};

void say(const std::string& text) {
  std::puts(text.c_str());
  std::fflush(stdout);
}

bool takeControl(const char* device, std::uint32_t leaseMs) {
  const auto progress = std::make_shared<Progress>();
  robot = IMotionHighLevelClient::create(device);
  if (!robot) return false;
  robot->setConnectCallback([progress](std::uint32_t state, std::uint32_t code) {
    say("state " + std::to_string(state) + " " + std::to_string(code));
    const std::lock_guard<std::mutex> lock(progress->mutex);
    progress->state = state;
    progress->changed.notify_all();
  });
  robot->setEventCallback([](const std::string&, const std::string&) {});
  robot->setMotionObservedCallback([progress](const orvane::RobotSdk::ObservedMotionRecord&) {
    const std::lock_guard<std::mutex> lock(progress->mutex);
    progress->observed = true;
    progress->changed.notify_all();
  });
  std::string accepted;
  if (!robot->connect(leaseMs) ||
      !robot->setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})", &accepted,
                                      10000) ||
      !robot->takeMotionControl(20000)) {
    return false;
  }
  // Samples are arriving, so the observed threads are at work when the process ends.
  std::unique_lock<std::mutex> lock(progress->mutex);
  return progress->changed.wait_for(lock, std::chrono::seconds(40),
                                    [&] { return progress->state == 2 && progress->observed; });
}

int returnFromMain() {
  return EXIT_SUCCESS;
}

int callExit() {
  std::exit(EXIT_SUCCESS);
}

int shutDownWhileConnected() {
  IMotionSdkService::instance()->shutdown();
  return robot->standing(1000) ? EXIT_FAILURE : EXIT_SUCCESS;  // nothing may reach the robot now
}

int releaseAndLeaveAtOnce() {
  const bool released = robot->releaseMotionControl() && robot->disconnect();
  IMotionSdkService::instance()->shutdown();
  return released ? EXIT_SUCCESS : EXIT_FAILURE;
}

int holdUntilTerminated() {
  sigset_t terminate;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  int number = 0;
  sigwait(&terminate, &number);
  robot->disconnect();
  IMotionSdkService::instance()->shutdown();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  const std::map<std::string, std::function<int()>> scenarios = {
      {"return", returnFromMain},           {"exit", callExit},
      {"shutdown", shutDownWhileConnected}, {"release", releaseAndLeaveAtOnce},
      {"hold", holdUntilTerminated},
  };
  const auto scenario = argc > 2 ? scenarios.find(argv[1]) : scenarios.end();
  if (scenario == scenarios.end()) {
    std::fputs("usage: sdk_client return|exit|shutdown|release|hold DEVICE [LEASE_MS]\n", stderr);
    return 2;
  }
  // Blocked before any thread exists, so that it waits for sigwait.
  sigset_t terminate;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &terminate, nullptr);

  auto* service = IMotionSdkService::instance();
  service->setNetworkInterface("lo");
  const auto leaseMs = static_cast<std::uint32_t>(argc > 3 ? std::atoi(argv[3]) : 60000);
  if (!service->initial(nullptr, "sdkClient", 0) || !takeControl(argv[2], leaseMs)) {
    say("no control");
    return 3;
  }
  say("in control");
  return scenario->second();
}
