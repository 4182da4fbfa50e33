// For the robot's own board: moves the joints of a robot 500 times a second, each smoothly away
// from where it is and back, and tells how regular the loop was.
//   joint_loop [SECONDS]     default 4, rounded down to whole strokes of 2 s

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

#include "LoopStatistics.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace {

using namespace orvane::RobotSdk;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kHertz = 500;
constexpr auto kPeriod = 1000000us / kHertz;
constexpr double kStrokeSeconds = 2;
constexpr double kStrokeRadians = 0.15;
constexpr double kFollowed = 0.5;  // share of the stroke that a joint must have made
constexpr std::uint32_t kConnected = 2;
constexpr std::uint32_t kPrepared = 3;
constexpr float kStiffness = 60;  // N m/rad
constexpr float kDamping = 2;     // N m s/rad

volatile std::sig_atomic_t interrupted = 0;

/// The client's state, as its callback tells it.
class StateWatch {
 public:
  void tell(std::uint32_t state, std::uint32_t error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    state_ = state;
    if (error != 0) std::fprintf(stderr, "joint_loop: state %u, error %u\n", state, error);
    changed_.notify_all();
  }
  [[nodiscard]] bool reaches(std::uint32_t state) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, 15s, [&] { return state_ == state; });
  }

 private:
  std::mutex mutex_;  // guards state_
  std::condition_variable changed_;
  std::uint32_t state_ = 0;
};

/// Where each joint is to be, `seconds` after the start: at the start and after each whole stroke
/// where it was.
class Stroke {
 public:
  explicit Stroke(const ObservedMotionRecord& start)
      : joints_(static_cast<std::uint32_t>(std::clamp(+start.motorNum, 0, 16))) {
    for (std::uint32_t i = 0; i < joints_; ++i) start_[i] = start.motor[i];
  }
  [[nodiscard]] LowLevelMotorRecord at(double seconds) const {
    const double phase = 2 * M_PI * seconds / kStrokeSeconds;
    const double offset = kStrokeRadians * (1 - std::cos(phase)) / 2;
    const double speed = kStrokeRadians * M_PI / kStrokeSeconds * std::sin(phase);
    LowLevelMotorRecord command{};
    command.motorNum = joints_;
    for (std::uint32_t i = 0; i < joints_; ++i) {
      LowLevelMotor& motor = command.motor[i];
      const double sign = direction(start_[i].jointNo);
      motor.position = static_cast<float>(start_[i].position + sign * offset);
      motor.velocity = static_cast<float>(sign * speed);
      motor.kpGain = kStiffness;
      motor.kdGain = kDamping;
      motor.limbsNo = start_[i].limbsNo;
      motor.jointNo = start_[i].jointNo;
    }
    return command;
  }
  /// The largest way that a joint has come from its start, rad.
  [[nodiscard]] double movedBy(const ObservedMotionRecord& seen) const {
    double most = 0;
    for (std::uint32_t i = 0; i < joints_; ++i) {
      most = std::max(most, std::fabs(double{seen.motor[i].position} - start_[i].position));
    }
    return most;
  }

 private:
  /// Thighs one way, calves the other; the hips stay.
  static double direction(std::uint16_t joint) { return joint == 1 ? 1 : joint == 2 ? -1 : 0; }

  std::uint32_t joints_;
  std::array<ObservedMotor, 16> start_{};
};

const char* move(IMotionLowLevelClient& robot, int strokes) {
  ObservedMotionRecord seen{};
  if (!robot.requireObserved(&seen, 100)) return "see the joints";
  const Stroke stroke(seen);
  const std::size_t passes = static_cast<std::size_t>(strokes * kStrokeSeconds * kHertz);
  joint_loop::LoopStatistics statistics(passes);
  double furthest = 0;
  double last = 0;
  auto next = Clock::now();
  for (std::size_t pass = 0; pass <= passes && interrupted == 0; ++pass) {
    statistics.begin();
    const LowLevelMotorRecord command = stroke.at(static_cast<double>(pass) / kHertz);
    if (!robot.publishMotorAction(&command, nullptr)) statistics.countRefused();
    if (robot.requireObserved(&seen, 5)) {
      last = stroke.movedBy(seen);
      furthest = std::max(furthest, last);
    } else {
      statistics.countLost();
    }
    next += kPeriod;
    std::this_thread::sleep_until(next);
  }
  statistics.print();
  std::printf("joints moved     %.3f rad, and back to %.3f rad from their start\n", furthest, last);
  if (interrupted == 0 && furthest < kFollowed * kStrokeRadians) return "move the joints";
  return nullptr;
}

const char* run(IMotionLowLevelClient& robot, StateWatch& states, int strokes) {
  if (!robot.connect(kHertz, 2000)) return "connect";
  if (!states.reaches(kConnected)) return "get a session";
  std::printf("A session is held. Switching the drive on ...\n");
  if (!robot.setSessionFlag(true) || !states.reaches(kPrepared)) return "switch the drive on";
  if (const char* const failed = move(robot, strokes)) return failed;
  if (!robot.setSessionFlag(false) || !states.reaches(kConnected)) return "switch the drive off";
  std::printf("The drive is off.\n");
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 4;
  const int strokes = std::max(1, static_cast<int>(seconds / kStrokeSeconds));
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::signal(SIGTERM, [](int) { interrupted = 1; });

  auto* const service = IMotionSdkService::instance();
  const char* failed = "initialise";
  if (service->initial(nullptr, "joint_loop", 10)) {
    const auto states = std::make_shared<StateWatch>();
    failed = "make a low-level client";
    if (const auto robot = IMotionLowLevelClient::create()) {
      robot->setStateCallback(
          [states](std::uint32_t state, std::uint32_t error) { states->tell(state, error); });
      failed = run(*robot, *states, strokes);
      if (failed != nullptr) std::fprintf(stderr, "error %u: ", robot->getLastError());
      robot->disconnect();
    }
  }
  service->shutdown();
  if (failed != nullptr) std::fprintf(stderr, "joint_loop: could not %s\n", failed);
  return failed == nullptr ? EXIT_SUCCESS : EXIT_FAILURE;
}
