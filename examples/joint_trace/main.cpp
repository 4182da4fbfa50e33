// From another machine than the robot, against a simulator: moves the joints 500 times a second,
// each smoothly away from where it is and back, and draws where they were told to be and where they
// were.
//   joint_trace [--interface NAME] [--motor NAME] [--seconds N] [--output FILE]
// The network interface (default lo), one motor such as FL_thigh (default: all), how long (default
// 4.5), and the drawing (default joint_trace.svg). The environment variables of the low-level
// client choose domain and topics.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Motion.h"
#include "SvgPlot.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace {

using namespace orvane::RobotSdk;
using joint_trace::Curve;
using joint_trace::Motion;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::uint32_t kHertz = 500;
constexpr auto kPeriod = std::chrono::microseconds(1'000'000 / kHertz);
constexpr std::size_t kDrawnOf = 5;  // every fifth pass is drawn
constexpr std::uint32_t kFirstSampleMs = 5000;
constexpr double kFollowed = 0.5;  // share of the stroke that a joint must have made
constexpr std::uint32_t kJointsPerLimb = 3;

volatile std::sig_atomic_t interrupted = 0;

struct Options {
  std::string interface = "lo";
  std::string motor;  // empty: all
  std::string output = "joint_trace.svg";
  double seconds = 4.5;
};

bool read(int argc, char** argv, Options& options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i];
    const std::string value = argv[i + 1];
    if (name == "--interface") {
      options.interface = value;
    } else if (name == "--motor") {
      options.motor = value;
    } else if (name == "--output") {
      options.output = value;
    } else if (name == "--seconds") {
      char* end = nullptr;
      options.seconds = std::strtod(value.c_str(), &end);
      if (value.empty() || *end != '\0') return false;
    } else {
      return false;
    }
  }
  return argc % 2 == 1 && options.seconds >= 1 && options.seconds <= 600;
}

/// A curve per motor that is wanted, empty still; none when there is no motor of that name.
std::vector<Curve> curvesOf(const MotorLayout& layout, const std::string& motor) {
  std::vector<Curve> curves(layout.motorNum);
  for (std::uint32_t i = 0; i < layout.motorNum; ++i) {
    if (motor.empty() || motor == layout.motors[i].name) curves[i].name = layout.motors[i].name;
  }
  return curves;
}

void note(std::vector<Curve>& curves, double seconds, const LowLevelMotorRecord& command,
          const ObservedMotionRecord& seen) {
  for (std::size_t i = 0; i < std::min<std::size_t>(curves.size(), command.motorNum); ++i) {
    if (curves[i].name.empty()) continue;
    curves[i].seconds.push_back(seconds);
    curves[i].commanded.push_back(command.motor[i].position);
    curves[i].measured.push_back(seen.motor[i].position);
  }
}

/// The largest way that any joint has come from its start, rad.
double movedBy(const ObservedMotionRecord& start, const ObservedMotionRecord& seen) {
  double most = 0;
  for (std::int32_t i = 0; i < std::min<std::int32_t>(+start.motorNum, kMaxMotors); ++i) {
    most = std::max(most, std::fabs(double{seen.motor[i].position} - start.motor[i].position));
  }
  return most;
}

const char* move(IMotionLowLevelClient& robot, const Options& options, std::vector<Curve>& curves) {
  ObservedMotionRecord start{};
  if (!robot.requireObserved(&start, kFirstSampleMs)) return "see a robot: is a simulator running?";
  if (!robot.setSessionFlag(true)) return "switch to commanding";
  const Motion motion(start);
  ObservedMotionRecord seen = start;
  double furthest = 0;
  const auto begun = Clock::now();
  auto next = begun;
  const auto passes = static_cast<std::size_t>(options.seconds * kHertz);
  for (std::size_t pass = 0; pass <= passes && interrupted == 0; ++pass) {
    const double seconds = Seconds(Clock::now() - begun).count();
    const LowLevelMotorRecord command = motion.at(seconds);
    if (!robot.publishMotorAction(&command, nullptr)) return "send a command";
    static_cast<void>(robot.requireObserved(&seen, 1));  // else the last one again
    if (pass % kDrawnOf == 0) note(curves, seconds, command, seen);
    furthest = std::max(furthest, movedBy(start, seen));
    next += kPeriod;
    std::this_thread::sleep_until(next);
  }
  std::printf("joints moved %.3f rad, and back to %.3f rad from their start\n", furthest,
              movedBy(start, seen));
  if (interrupted != 0) return "go on: interrupted";
  return furthest < kFollowed * Motion::kStrokeRadians ? "move the joints" : nullptr;
}

const char* draw(std::vector<Curve> curves, const std::string& path) {
  curves.erase(std::remove_if(curves.begin(), curves.end(),
                              [](const Curve& curve) { return curve.seconds.size() < 2; }),
               curves.end());
  if (curves.empty()) return "draw: the robot doesn't show that motor";
  std::ofstream file(path);
  file << joint_trace::drawSvg(curves, std::min<std::size_t>(curves.size(), kJointsPerLimb));
  file.close();
  if (!file) return "write the drawing";
  std::printf("The drawing is in %s.\n", path.c_str());
  return nullptr;
}

const char* run(IMotionLowLevelClient& robot, const Options& options) {
  MotorLayout layout{};
  if (!robot.getMotorLayout(&layout, 0)) return "get the motor layout";
  auto curves = curvesOf(layout, options.motor);
  const bool isKnown = std::any_of(curves.begin(), curves.end(),
                                   [](const Curve& curve) { return !curve.name.empty(); });
  if (!isKnown) return "find that motor: FL, FR, RL or RR, and _hip, _thigh or _calf";
  if (!robot.connect(kHertz, 0)) return "open the topics";
  const char* failed = move(robot, options, curves);
  robot.disconnect();
  return failed != nullptr ? failed : draw(std::move(curves), options.output);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!read(argc, argv, options)) {
    std::fputs("joint_trace [--interface NAME] [--motor NAME] [--seconds N] [--output FILE]\n",
               stderr);
    return 2;
  }
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::signal(SIGTERM, [](int) { interrupted = 1; });

  auto* const service = IMotionSdkService::instance();
  service->setNetworkInterface(options.interface.c_str());
  const char* failed = "initialise";
  if (service->initial(nullptr, "joint_trace", 0)) {
    const auto robot = IMotionLowLevelClient::create();
    failed = robot != nullptr ? run(*robot, options) : "make a low-level client";
  }
  service->shutdown();
  if (failed != nullptr) std::fprintf(stderr, "joint_trace: could not %s\n", failed);
  if (interrupted != 0) return 130;
  return failed == nullptr ? EXIT_SUCCESS : EXIT_FAILURE;
}
