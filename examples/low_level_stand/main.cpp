// Has a robot stand up joint by joint, on a trajectory of its own that begins wherever the joints
// are: folds the legs, rises, holds, looks whether the body really stands, and lowers it again.
//
//   low_level_stand [--interface NAME]   from another machine, against a simulator (default lo)
//   low_level_stand --board              on the robot's own board, or in tools/board-sandbox
//
// Ctrl-C lowers the robot. The exit status is 0 when the robot stood, 130 when Ctrl-C came before
// it did, 2 for a wrong option and 1 for every other failure.

#include <sched.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Leg.h"
#include "Pilot.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace {

using namespace orvane::RobotSdk;
using namespace std::chrono_literals;
using namespace low_level_stand;

constexpr double kFoldSeconds = 1.2;
constexpr double kRiseSeconds = 2;
constexpr double kSettleSeconds = 0.5;  // it is held, but not judged
constexpr double kHoldSeconds = 1.5;
constexpr double kLowerSeconds = 2;
constexpr int kAttempts = 5;  // as long as the motors are lost on the way

// Whether it stands.
constexpr double kFurthestOff = 0.1;   // rad
constexpr double kLargestTilt = 0.15;  // rad
constexpr double kLoadOff = 0.3;       // share of the weight

constexpr std::uint32_t kConnected = 2;
constexpr std::uint32_t kPrepared = 3;
constexpr std::uint32_t kDaemonSeconds = 10;
constexpr std::uint32_t kLeaseMs = 2000;
constexpr auto kStateLimit = 15s;
constexpr int kPriority = 20;  // of SCHED_FIFO, below the kernel's own threads

volatile std::sig_atomic_t interrupted = 0;

struct Options {
  std::string interface = "lo";
  bool board = false;
};

bool read(int argc, char** argv, Options& options) {
  const std::string name = argc > 1 ? argv[1] : "";
  options.board = argc == 2 && name == "--board";
  if (argc == 3 && name == "--interface") options.interface = argv[2];
  return argc == 1 || options.board || (argc == 3 && name == "--interface");
}

Held standUp(Pilot& pilot) {
  pilot.take();
  std::printf("Folding the legs ...\n");
  pilot.lead(kFolded, kFoldSeconds);
  std::printf("Rising ...\n");
  pilot.lead(kStanding, kRiseSeconds);
  std::printf("Holding ...\n");
  static_cast<void>(pilot.hold(kSettleSeconds));
  const Held held = pilot.hold(kHoldSeconds);
  if (held.off > kFurthestOff) throw MotorsLost("a joint gave way while it was held");
  return held;
}

void lower(Pilot& pilot) {
  pilot.goOnWhenInterrupted();
  pilot.take();
  std::printf("Lowering ...\n");
  pilot.lead(kFolded, kLowerSeconds);
}

/// Does it anew, from where the joints are then, when the motors were lost.
template <typename Result>
Result patiently(Result (*movement)(Pilot&), Pilot& pilot) {
  for (int attempt = 1;; ++attempt) {
    try {
      return movement(pilot);
    } catch (const MotorsLost& lost) {
      if (attempt == kAttempts) throw;
      std::printf("Beginning anew: %s.\n", lost.what());
    }
  }
}

/// How much of the robot's weight the legs carry, by the torques measured: 1 is all of it. Legs
/// that hang in the air carry nothing, whatever they were commanded.
double loadOf(const Joints& measured) {
  const Joints carrying = carryingTorques(kStanding);
  double product = 0;
  double square = 0;
  for (std::size_t i = 0; i < kJoints; ++i) {
    product += measured[i] * carrying[i];
    square += carrying[i] * carrying[i];
  }
  return product / square;
}

/// Null when a robot that was held firmly stands, else what is wrong.
const char* faultOf(const Held& held) {
  if (!held.tiltIsKnown) return "the inertial unit doesn't know its attitude";
  if (held.tilt > kLargestTilt) return "the body is tilted";
  if (std::abs(loadOf(held.torque) - 1) > kLoadOff) return "the legs don't carry its weight";
  return nullptr;
}

void await(IMotionLowLevelClient& robot, std::uint32_t state, const std::string& failed) {
  const auto limit = std::chrono::steady_clock::now() + kStateLimit;
  while (robot.getState() != state) {
    if (interrupted != 0) throw Interrupted();
    if (std::chrono::steady_clock::now() > limit) {
      throw std::runtime_error(failed + " (error " + std::to_string(robot.getLastError()) + ")");
    }
    std::this_thread::sleep_for(10ms);
  }
}

std::shared_ptr<IMotionLowLevelClient> prepare(const Options& options) {
  auto* const service = IMotionSdkService::instance();
  if (!options.board) service->setNetworkInterface(options.interface.c_str());
  if (!service->initial(nullptr, "low_level_stand", kDaemonSeconds)) {
    throw std::runtime_error("could not initialise the library");
  }
  if (options.board == service->isMultiDevice()) {
    throw std::runtime_error(options.board ? "this is no robot's board (--board)"
                                           : "this is a robot's board, which takes --board");
  }
  auto robot = IMotionLowLevelClient::create();
  if (robot == nullptr) throw std::runtime_error("could not make a low-level client");
  if (!robot->connect(Pilot::kHertz, kLeaseMs)) throw std::runtime_error("could not connect");
  await(*robot, kConnected, "could not get a session");
  robot->setSessionFlag(true);
  await(*robot, kPrepared, "could not switch the drive on");
  return robot;
}

void run(const Options& options) {
  const auto robot = prepare(options);
  // This thread only, and only where the machine lets it: keeps its time on a busy one.
  sched_param own{};
  own.sched_priority = kPriority;
  static_cast<void>(sched_setscheduler(0, SCHED_FIFO, &own));
  Pilot pilot(*robot, interrupted);
  Held held;
  try {
    held = patiently(standUp, pilot);
  } catch (const Interrupted&) {
    patiently(lower, pilot);
    throw;
  }
  const char* const fault = faultOf(held);
  if (fault == nullptr) {
    std::printf("It stands.\n");
  } else {
    std::printf("It doesn't stand: %s.\n", fault);
  }
  std::printf(
      "Joints off by %.3f rad at most, tilt %.3f rad at most, %.0f %% of the weight on legs.\n",
      held.off, held.tilt, 100 * loadOf(held.torque));
  patiently(lower, pilot);
  if (fault != nullptr) throw std::runtime_error("the robot didn't stand");
  robot->disconnect();  // and so switches the drive off
  std::printf("It is down again; the motors are free.\n");
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!read(argc, argv, options)) {
    std::fputs("low_level_stand [--interface NAME | --board]\n", stderr);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // a line per phase, also in a pipe
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::signal(SIGTERM, [](int) { interrupted = 1; });

  int status = EXIT_SUCCESS;
  try {
    run(options);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "low_level_stand: %s\n", failure.what());
    status = interrupted != 0 ? 130 : EXIT_FAILURE;
  }
  IMotionSdkService::instance()->shutdown();
  return status;
}
