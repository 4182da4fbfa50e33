// Has a robot stand up joint by joint, on a trajectory of its own that begins wherever the joints
// are: folds the legs, rises, holds, looks whether the body really stands, and lowers it again.
// printHelp() has the options.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "Leg.h"
#include "Pilot.h"
#include "Verdict.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace {

using namespace orvane::RobotSdk;
using namespace std::chrono_literals;
using low_level_stand::allLegs;
using low_level_stand::Outcome;
using low_level_stand::Pilot;
using low_level_stand::Verdict;

constexpr double kFoldSeconds = 1.2;
constexpr double kRiseSeconds = 2;
constexpr double kSettleSeconds = 0.5;  // of the time that it is held, not judged
constexpr double kHoldSeconds = 2;
constexpr double kLowerSeconds = 2;
constexpr double kStayPiece = 0.5;  // s
// When the motors are lost on the way.
constexpr int kAttemptsWhenLate = 5;
constexpr int kAttemptsWhenNotFollowed = 2;
constexpr std::uint32_t kConnected = 2;
constexpr std::uint32_t kPrepared = 3;
constexpr std::uint32_t kDaemonSeconds = 10;
constexpr std::uint32_t kLeaseMs = 2000;
constexpr auto kStateLimit = 15s;

volatile std::sig_atomic_t interrupted = 0;

struct Options {
  std::string interface = "lo";
  bool board = false;
  bool stay = false;
  bool help = false;
};

void printHelp(std::FILE* out) {
  std::fputs(
      "Has a robot stand up joint by joint, looks whether it really stands, and lowers it again.\n"
      "\n"
      "usage: low_level_stand [--interface NAME | --board] [--stay]\n"
      "  --interface NAME   the network interface on which a simulator is (default lo); the\n"
      "                     environment variables of the low-level client choose domain and "
      "topics\n"
      "  --board            run on the robot's own board, or as if on it (tools/board-sandbox)\n"
      "  --stay             stay standing until Ctrl-C\n"
      "  --help             this text\n"
      "\n"
      "Ctrl-C lowers the robot at any time. The exit status is 0 when the robot stood, 130 when\n"
      "Ctrl-C came before it did, 2 for a wrong option and 1 for every other failure.\n",
      out);
}

bool read(int argc, char** argv, Options& options) {
  bool interfaceGiven = false;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    if (name == "--interface" && i + 1 < argc) {
      options.interface = argv[++i];
      interfaceGiven = true;
    } else if (name == "--board") {
      options.board = true;
    } else if (name == "--stay") {
      options.stay = true;
    } else if (name == "--help" || name == "-h") {
      options.help = true;
    } else {
      return false;
    }
  }
  return !(options.board && interfaceGiven);
}

/// Goes on "could not".
const char* textOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return nullptr;
    case Outcome::kInterrupted:
      return "go on: interrupted";
    case Outcome::kLate:
      return "command the motors in time: this machine is too busy";
    case Outcome::kNotFollowed:
      return "lead the joints: they don't follow. Somebody else may have the robot";
    case Outcome::kNotTaken:
      return "take the motors: the robot carries out no commands";
    case Outcome::kDriveOff:
      return "go on: the motors' drive went off";
    case Outcome::kSilent:
      return "see a robot: is one, or a simulator, running?";
    case Outcome::kOtherRobot:
      return "lead this robot: it hasn't four legs of three joints";
  }
  return "go on";
}

Outcome standUp(Pilot& pilot, Verdict& verdict) {
  Outcome outcome = pilot.take();
  if (outcome != Outcome::kDone) return outcome;
  const auto folded = allLegs(low_level_stand::kFolded);
  std::printf("Found the joints, up to %.2f rad from folded legs. Folding ...\n",
              low_level_stand::furthest(pilot.seen().position, folded));
  outcome = pilot.lead(folded, kFoldSeconds);
  if (outcome != Outcome::kDone) return outcome;
  std::printf("Rising ...\n");
  outcome = pilot.lead(allLegs(low_level_stand::kStanding), kRiseSeconds);
  if (outcome != Outcome::kDone) return outcome;
  std::printf("Holding for %.0f s ...\n", kHoldSeconds);
  outcome = pilot.hold(kSettleSeconds, [](const auto&) {});
  if (outcome != Outcome::kDone) return outcome;
  return pilot.hold(kHoldSeconds - kSettleSeconds,
                    [&](const auto& readings) { verdict.add(readings); });
}

/// Whether motors let go or don't follow, and are to be taken anew, from where the joints are then.
bool isWorthAnother(int attempt, Outcome outcome) {
  const int attempts = outcome == Outcome::kLate          ? kAttemptsWhenLate
                       : outcome == Outcome::kNotFollowed ? kAttemptsWhenNotFollowed
                                                          : 0;
  if (attempt >= attempts) return false;
  std::printf("Could not %s. Beginning anew ...\n", textOf(outcome));
  return true;
}

Outcome standUpPatiently(Pilot& pilot, Verdict& verdict) {
  for (int attempt = 1;; ++attempt) {
    verdict = Verdict(allLegs(low_level_stand::kStanding));
    const Outcome outcome = standUp(pilot, verdict);
    if (!isWorthAnother(attempt, outcome)) return outcome;
  }
}

Outcome lower(Pilot& pilot) {
  pilot.goOnWhenInterrupted();
  std::printf("Lowering ...\n");
  const auto folded = allLegs(low_level_stand::kFolded);
  Outcome outcome = pilot.lead(folded, kLowerSeconds);
  for (int attempt = 1; isWorthAnother(attempt, outcome); ++attempt) {
    outcome = pilot.take();
    if (outcome == Outcome::kDone) outcome = pilot.lead(folded, kLowerSeconds);
  }
  return outcome;
}

const char* perform(Pilot& pilot, const Options& options) {
  Verdict verdict(allLegs(low_level_stand::kStanding));
  Outcome outcome = standUpPatiently(pilot, verdict);
  if (outcome == Outcome::kInterrupted) {
    const Outcome lowered = lower(pilot);
    return textOf(lowered == Outcome::kDone ? outcome : lowered);
  }
  if (outcome != Outcome::kDone) return textOf(outcome);
  const char* const fault = verdict.fault();
  std::printf(fault == nullptr ? "It stands.\n" : "It doesn't stand: %s.\n", fault);
  if (options.stay && fault == nullptr) {
    std::printf("Standing until Ctrl-C ...\n");
    while (outcome == Outcome::kDone) outcome = pilot.hold(kStayPiece, [](const auto&) {});
    if (outcome != Outcome::kInterrupted) return textOf(outcome);
  }
  outcome = lower(pilot);
  verdict.print();
  if (fault != nullptr) return "stand";
  return textOf(outcome);
}

bool reaches(IMotionLowLevelClient& robot, std::uint32_t state) {
  const auto limit = std::chrono::steady_clock::now() + kStateLimit;
  while (robot.getState() != state) {
    if (interrupted != 0 || std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

const char* run(IMotionLowLevelClient& robot, const Options& options) {
  if (!robot.connect(Pilot::kHertz, kLeaseMs) || !reaches(robot, kConnected)) {
    return options.board ? "get a session" : "open the topics";
  }
  if (!robot.setSessionFlag(true) || !reaches(robot, kPrepared)) return "switch the drive on";
  Pilot pilot(robot, interrupted);
  if (const char* const failed = perform(pilot, options)) return failed;
  if (!robot.setSessionFlag(false)) return "switch the drive off";
  std::printf("It lies again; the motors are free.\n");
  return nullptr;
}

const char* connectAndRun(const Options& options) {
  auto* const service = IMotionSdkService::instance();
  if (!options.board) service->setNetworkInterface(options.interface.c_str());
  if (!service->initial(nullptr, "low_level_stand", kDaemonSeconds)) return "initialise";
  if (options.board == service->isMultiDevice()) {
    return options.board ? "begin: this is no robot's board (--board)"
                         : "begin: this is a robot's board, which takes --board";
  }
  const auto robot = IMotionLowLevelClient::create();
  if (robot == nullptr) return "make a low-level client";
  const char* const failed = run(*robot, options);
  if (failed != nullptr && interrupted == 0) {
    if (const auto error = robot->getLastError()) std::fprintf(stderr, "error %u: ", error);
  }
  robot->disconnect();
  return failed;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!read(argc, argv, options)) {
    printHelp(stderr);
    return 2;
  }
  if (options.help) {
    printHelp(stdout);
    return EXIT_SUCCESS;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // a line per phase, also in a pipe
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::signal(SIGTERM, [](int) { interrupted = 1; });

  const char* const failed = connectAndRun(options);
  IMotionSdkService::instance()->shutdown();
  if (failed == nullptr) return EXIT_SUCCESS;
  std::fprintf(stderr, "low_level_stand: could not %s\n", failed);
  return interrupted != 0 ? 130 : EXIT_FAILURE;
}
