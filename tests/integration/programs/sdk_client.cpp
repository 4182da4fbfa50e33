// sdk_client SCENARIO DEVICE [NUMBER]: an application with one client, as a process of its own.
// DEVICE: a robot's device id, or, on the robot board, --master, --not-master or, for the low-level
// client, --board. Prints "state S C" for each connect or state callback, "in control" once a
// scenario that wants control has it, and what the scenario itself has to say. NUMBER: the lease in
// ms, or how many rounds. Exit status 0: all went as it should. A high-level client is alive in a
// static object until the process ends.

#include <dirent.h>
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>

#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionLowLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "sdk_joints.h"

namespace {

using orvane::RobotSdk::IMotionHighLevelClient;
using orvane::RobotSdk::IMotionLowLevelClient;
using orvane::RobotSdk::IMotionSdkService;

constexpr std::uint32_t kRequestMs = 10000;
constexpr std::uint32_t kDaemonSeconds = 30;  // on the robot board only
constexpr auto kPatience = std::chrono::seconds(60);

std::string device;
std::uint32_t number = 60000;
std::shared_ptr<IMotionHighLevelClient> robot;

struct Progress {
  std::mutex mutex;
  std::condition_variable changed;
  std::uint32_t state = 0;
  int motion = 0;
  int sensor = 0;
  bool left = false;  // disconnected: no callback runs any more
};

void say(const std::string& text) {
  std::puts(text.c_str());
  std::fflush(stdout);
}

bool startService() {
  auto* service = IMotionSdkService::instance();
  service->setNetworkInterface("lo");
  return service->initial(nullptr, "sdkClient", kDaemonSeconds);
}

std::shared_ptr<IMotionHighLevelClient> create() {
  const bool asMaster = device == "--master";
  if (asMaster || device == "--not-master") return IMotionHighLevelClient::create(asMaster);
  return IMotionHighLevelClient::create(device);
}

/// Connects `robot` and switches its streams on.
bool connect(const std::shared_ptr<Progress>& progress) {
  robot = create();
  if (!robot) return false;
  const auto update = [progress](auto change) {
    const std::lock_guard<std::mutex> lock(progress->mutex);
    if (progress->left) {
      say("called after the disconnect");
      std::_Exit(EXIT_FAILURE);
    }
    change(*progress);
    progress->changed.notify_all();
  };
  robot->setConnectCallback([update](std::uint32_t state, std::uint32_t code) {
    say("state " + std::to_string(state) + " " + std::to_string(code));
    update([state](Progress& now) { now.state = state; });
  });
  robot->setEventCallback([](const std::string&, const std::string&) {});
  robot->setMotionObservedCallback([update](const orvane::RobotSdk::ObservedMotionRecord&) {
    update([](Progress& now) { ++now.motion; });
  });
  robot->setSensorObservedCallback([update](const orvane::RobotSdk::ObservedSensorRecord&) {
    update([](Progress& now) { ++now.sensor; });
  });
  std::string accepted;
  return robot->connect(number) &&
         robot->setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})", &accepted,
                                        kRequestMs);
}

template <class Condition>
bool reach(Progress& progress, Condition holds) {
  std::unique_lock<std::mutex> lock(progress.mutex);
  return progress.changed.wait_for(lock, kPatience, [&] { return holds(progress); });
}

bool takeControl() {
  const auto progress = std::make_shared<Progress>();
  if (!startService() || !connect(progress) || !robot->takeMotionControl(20000)) return false;
  // Samples are arriving, so the observed threads are at work when the process ends.
  if (!reach(*progress, [](const Progress& now) { return now.state == 2 && now.motion > 0; })) {
    return false;
  }
  say("in control");
  return true;
}

bool endService() {
  const bool ended = robot->disconnect();
  IMotionSdkService::instance()->shutdown();
  return ended;
}

sigset_t terminate() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  return signals;
}

bool terminatedWithin(long ms) {
  const sigset_t signals = terminate();
  const timespec limit{ms / 1000, ms % 1000 * 1000000};
  return sigtimedwait(&signals, nullptr, &limit) == SIGTERM;
}

// --- scenarios ---

bool returnFromMain() {
  return takeControl();
}

bool callExit() {
  std::exit(takeControl() ? EXIT_SUCCESS : EXIT_FAILURE);
}

bool shutDownWhileConnected() {
  if (!takeControl()) return false;
  IMotionSdkService::instance()->shutdown();
  return !robot->standing(1000);  // nothing may reach the robot now
}

bool releaseAndLeaveAtOnce() {
  return takeControl() && robot->releaseMotionControl() && endService();
}

/// Walks ahead, whatever becomes of control. Says what became of a command when that changes.
bool walkUntilTerminated() {
  if (!takeControl() || !robot->standing(kRequestMs)) return false;
  std::uint32_t said = ~0U;
  while (!terminatedWithin(50)) {
    const bool walks = robot->velocityMove(0.3F, 0, 0, 1000);
    const std::uint32_t outcome = walks ? 0 : robot->getLastError();
    if (outcome == said) continue;
    say(walks ? "walking" : "error " + std::to_string(outcome));
    said = outcome;
  }
  return endService();
}

bool observeUntilTerminated() {
  const auto progress = std::make_shared<Progress>();
  std::string state;
  if (!startService() || !connect(progress) || !robot->queryMotionState(&state, kRequestMs) ||
      !reach(*progress, [](const Progress& now) { return now.motion > 50 && now.sensor > 5; })) {
    return false;
  }
  say("observing");
  while (!terminatedWithin(1000)) continue;
  return endService();
}

/// Commands the joints with the drive on, 500 times a second, until its session is lost. It gets
/// another one, with the drive on too, in which it commands nothing.
bool commandJointsUntilTerminated() {
  if (!startService()) return false;
  const auto joints = IMotionLowLevelClient::create();
  if (!joints) return false;
  std::atomic<bool> lost{false};
  joints->setStateCallback([&](std::uint32_t state, std::uint32_t code) {
    if (state == 4) lost = true;
    say("state " + std::to_string(state) + " " + std::to_string(code));
  });
  if (!joints->connect(500, number) || !joints->setSessionFlag(true)) return false;
  orvane::RobotSdk::ObservedMotionRecord start{};
  orvane::RobotSdk::LowLevelMotorRecord command{};
  while (!terminatedWithin(2)) {
    if (lost || joints->getState() != 3) continue;
    if (command.motorNum == 0 && joints->requireObserved(&start, 1000)) {
      command = sdk_test::strokeFrom(start);
    }
    if (command.motorNum > 0) static_cast<void>(joints->publishMotorAction(&command, nullptr));
  }
  const bool ended = joints->disconnect();
  IMotionSdkService::instance()->shutdown();
  return ended;
}

/// Holds the joints of the simulated robot where they are.
bool holdJointsUntilTerminated() {
  if (!startService()) return false;
  const auto client = orvane::RobotSdk::IMotionLowLevelClient::create();
  orvane::RobotSdk::ObservedMotionRecord seen{};
  if (!client || !client->connect(500, 0) || !client->setSessionFlag(true) ||
      !client->requireObserved(&seen, kRequestMs)) {
    return false;
  }
  orvane::RobotSdk::LowLevelMotorRecord command{};
  for (; command.motorNum < 12; ++command.motorNum) {
    const auto motor = seen.motor[command.motorNum];
    command.motor[command.motorNum] = {motor.position, 0, 100, 5, 0, motor.limbsNo, motor.jointNo};
  }
  say("commanding");
  while (!terminatedWithin(2)) {
    if (!client->publishMotorAction(&command, nullptr)) return false;
  }
  return client->disconnect();
}

std::size_t entriesOf(const char* path) {
  std::size_t count = 0;
  if (DIR* directory = opendir(path)) {
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
  }
  return count;
}

/// Says what the process holds now.
void sayRound() {
  const struct mallinfo2 heap = mallinfo2();
  say("round " + std::to_string(entriesOf("/proc/self/task")) + " " +
      std::to_string(entriesOf("/proc/self/fd")) + " " +
      std::to_string((heap.uordblks + heap.hblkhd) / 1024));
}

bool useAClient() {
  const auto progress = std::make_shared<Progress>();
  std::string state;
  if (!connect(progress) || !robot->queryMotionState(&state, kRequestMs) ||
      !reach(*progress, [](const Progress& now) { return now.motion > 0; }) ||
      !robot->disconnect()) {
    return false;
  }
  const std::lock_guard<std::mutex> lock(progress->mutex);
  progress->left = true;
  return true;
}

bool connectAndDisconnectOften() {
  if (!startService()) return false;
  for (std::uint32_t round = 0; round < number; ++round) {
    if (!useAClient()) return false;
    robot.reset();
    sayRound();
  }
  return true;
}

bool startAndShutDownOften() {
  for (std::uint32_t round = 0; round < number; ++round) {
    if (!startService() || !useAClient()) return false;
    robot.reset();
    IMotionSdkService::instance()->shutdown();
    sayRound();
  }
  return true;
}

struct Scenario {
  const char* name;
  bool (*run)();
};
constexpr Scenario kScenarios[] = {
    {"return", returnFromMain},
    {"exit", callExit},
    {"shutdown", shutDownWhileConnected},
    {"release", releaseAndLeaveAtOnce},
    {"walk", walkUntilTerminated},
    {"observe", observeUntilTerminated},
    {"joints", commandJointsUntilTerminated},
    {"hold", holdJointsUntilTerminated},
    {"clients", connectAndDisconnectOften},
    {"services", startAndShutDownOften},
};

}  // namespace

int main(int argc, char** argv) {
  const auto* const scenario = std::find_if(
      std::begin(kScenarios), std::end(kScenarios),
      [&](const Scenario& row) { return argc > 2 && row.name == std::string(argv[1]); });
  if (scenario == std::end(kScenarios)) {
    std::fputs("usage: sdk_client SCENARIO DEVICE [NUMBER]\n", stderr);
    return 2;
  }
  // Blocked before any thread exists, so that it waits for sigtimedwait.
  const sigset_t signals = terminate();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  device = argv[2];
  if (argc > 3) number = static_cast<std::uint32_t>(std::atoi(argv[3]));
  return scenario->run() ? EXIT_SUCCESS : EXIT_FAILURE;
}
