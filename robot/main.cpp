// virtual-robot: a robot for people who have none at hand.

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "VirtualRobot.h"
#include "app/PaceWatch.h"
#include "app/SignalWaiter.h"
#include "app/SimulationOptions.h"
#include "app/StatusLine.h"
#include "app/Tell.h"
#include "faults/FaultCommand.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "physics/RenderFile.h"

namespace {

using namespace orvane::robot;

constexpr std::uint32_t kRefreshMs = 200;
constexpr std::uint32_t kWarning = 3;

struct Options {
  RobotSettings robot;
  bool board = false;
  bool host = false;
  bool verbose = false;
  std::vector<std::string> commands;  // of tell
  std::uint32_t timeoutMs = 3000;
};

void describeAddress(CLI::App& app, RobotSettings& robot) {
  app.add_option("--device-id", robot.deviceId, "Name under which it is discovered")
      ->capture_default_str();
  app.add_option("--interface", robot.interface,
                 "Network interface on which external hosts meet it")
      ->capture_default_str();
  app.add_option("--domain", robot.domain, "DDS domain of external hosts")
      ->capture_default_str()
      ->check(CLI::Range(0, 230));
}

CLI::App& describeTell(CLI::App& app, Options& options) {
  CLI::App& tell = *app.add_subcommand("tell", "Make a running virtual robot misbehave");
  tell.footer(
      "Each fault is one argument, so put it in quotes; several are carried out in order:\n" +
      faultForms() + "Exit status: 0 when all were carried out, otherwise another.");
  describeAddress(tell, options.robot);
  tell.add_flag("--board", options.board, "The robot that serves this robot board");
  tell.add_option("--timeout", options.timeoutMs, "How long to look for it and wait, ms")
      ->capture_default_str()
      ->check(CLI::Range(1, 600000));
  tell.add_option("faults", options.commands, "What it is to do")->required();
  return tell;
}

const char* bodyOf(const RobotSettings& robot) {
  return robot.body == BodyKind::kPhysics ? "physics" : "kinematic";
}

void describeBody(CLI::App& app, RobotSettings& robot) {
  const auto set = [&robot](const std::string& word) {
    if (word != "physics" && word != "kinematic") {
      throw CLI::ValidationError("--body", "physics or kinematic, not " + word);
    }
    robot.body = word == "physics" ? BodyKind::kPhysics : BodyKind::kKinematic;
  };
  app.add_option_function<std::string>(
         "--body", set,
         "kinematic: follows its commands, cheap enough for fleets; physics: has weight, and\n"
         "falls when its legs don't carry it. Default: physics where MuJoCo was there to build "
         "with")
      ->default_str(bodyOf(robot));
  app.add_option(
         "--seed", robot.seed,
         "With physics: one robot of many that differ in weight, friction and noise; 0: as drawn")
      ->capture_default_str()
      ->check(CLI::Range(std::uint32_t{0}, std::numeric_limits<std::uint32_t>::max()));
  CLI::Option* const render = app.add_option(
      "--render", robot.render.file,
      "Pictures of its body with physics, no screen needed: FILE.png is renewed each second,\n"
      "FILE.webp is an animation, written when it is full or the robot ends");
  app.add_option("--render-seconds", robot.render.seconds,
                 "How long the animation lasts at most; it pauses while nothing moves")
      ->capture_default_str()
      ->check(CLI::Range(1.0, 600.0))
      ->needs(render);
}

void describe(CLI::App& app, Options& options) {
  app.description(
      "A four-legged robot without the robot: serves on DDS what a real one serves, so that\n"
      "applications can be written and tried on a laptop. It lies on its belly when it starts;\n"
      "whoever takes control can have it stand up, walk and lie down. Ends with Ctrl-C.");
  app.footer(
      "Several robots run side by side, each with a device id of its own. The robot speaks on lo\n"
      "unless told otherwise, so give your application the same interface.\n"
      "Standard output shows what the robot does and who holds control; problems go to standard\n"
      "error. Exit status: 0 when it was asked to end, otherwise something went wrong.");
  describeAddress(app, options.robot);
  app.add_flag("--board", options.board,
               "Serves applications on this robot board (or in tools/board-sandbox)");
  app.add_flag("--host", options.host,
               "Serves applications on other machines: what it does without --board, too");
  app.add_option("--fault", options.robot.faults,
                 "A scripted fault from the start on, e.g. \"after 2000 revoke\"; repeatable. The\n"
                 "forms are those of \"virtual-robot tell --help\"")
      ->allow_extra_args(false);
  app.add_option("--loss", options.robot.lossPercent,
                 "Loses that share of its packets, percent: 0 to 100 in steps of 0.1");
  describeSimulation(app, options.robot.simulation);
  describeBody(app, options.robot);
  app.add_option("--robot-version", options.robot.version,
                 "Version that it tells of itself, to see what applications make of another one")
      ->capture_default_str();
  app.add_flag("--verbose", options.verbose, "Log what happens inside to standard error");
}

using Names = std::initializer_list<const char*>;

/// An option without effect would be a misunderstanding.
template <class Options>
void refuse(const CLI::App& app, const Options& options, const char* why) {
  for (const char* option : options) {
    if (app.count(option) > 0) throw CLI::ValidationError(option, why);
  }
}

void settlePictures(const CLI::App& app, const std::string& file) {
  if (app.count("--render") == 0) return;
  if (file.empty()) refuse(app, Names{"--render"}, "names no file");
  const auto kind = pictureKindOf(file);
  if (!kind) {
    throw CLI::ValidationError("--render", "takes a file that ends in .png or .webp, not " + file);
  }
  if (*kind == PictureKind::kStill) {
    refuse(app, Names{"--render-seconds"}, "is for an animation, FILE.webp");
  }
}

void settle(const CLI::App& app, const CLI::App& tellApp, Options& options) {
  if (tellApp.parsed()) {
    const char* const why = "is for a robot that starts; it doesn't go with tell";
    refuse(app,
           Names{"--fault", "--loss", "--host", "--robot-version", "--body", "--seed", "--render"},
           why);
    refuse(app, kSimulationOptions, why);
  }
  if (options.robot.body != BodyKind::kPhysics) {
    refuse(app, Names{"--seed", "--render"}, "is for --body physics");
  }
  settlePictures(app, options.robot.render.file);
  if (!options.board) return;
  options.robot.deployments = {Deployment::kBoard};
  if (options.host) {
    options.robot.deployments.insert(Deployment::kHost);
    return;
  }
  const char* const why = "is for external hosts; it doesn't go with --board alone";
  refuse(app, Names{"--interface", "--domain", "--loss"}, why);
  refuse(app, kSimulationOptions, why);
  if (!tellApp.parsed()) return;
  refuse(tellApp, Names{"--interface", "--domain"}, why);
  for (const CLI::App* given : {&app, &tellApp}) {
    refuse(*given, Names{"--device-id"}, "doesn't go with tell --board: a board has one robot");
  }
}

/// Where applications find it.
std::string placeOf(const RobotSettings& robot) {
  if (!robot.serves(Deployment::kHost)) return "on this board";
  const std::string place = "on " + robot.interface + ", domain " + std::to_string(robot.domain);
  return robot.serves(Deployment::kBoard) ? place + ", and on this board" : place;
}

/// The log goes to standard error; on a terminal it must not run into the status line.
void logTo(bool verbose, bool besideStatusLine) {
  Pexal::ILogger::instance()->enableConsole(false);
  Pexal::ILogger::instance()->addSink(
      [verbose, besideStatusLine](std::uint32_t level, const char* text, int length) {
        if (level < kWarning && !verbose) return;
        std::fprintf(stderr, "%s%.*s%s", besideStatusLine ? "\r\033[K" : "", length, text,
                     length > 0 && text[length - 1] == '\n' ? "" : "\n");
      });
}

/// Ends the film, if there is one. False: what came of it isn't in the file.
bool tellOfPictures(Film* film, const std::string& file) {
  if (film == nullptr) return true;
  const FilmReport report = film->finish();
  if (!report.error.empty()) {
    std::fprintf(stderr, "virtual-robot: %s\n", report.error.c_str());
    return false;
  }
  std::printf("%s: %zu picture%s", file.c_str(), report.pictures, report.pictures == 1 ? "" : "s");
  if (report.seconds > 0) std::printf(", %.1f s", report.seconds);
  std::printf("\n");
  return true;
}

/// A simulation that is slower than its clock explains much that looks like the application's
/// fault.
void warnOf(const std::optional<double>& factor) {
  if (!factor) return;
  Pexal::ILogger::instance()->log(
      kWarning, "VirtualRobot",
      "this machine is too busy: the simulation runs at %.2f of real time\n", *factor);
}

int run(const Options& options) {
  const SignalWaiter signals;
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  logTo(options.verbose, terminal && isatty(STDERR_FILENO) != 0);

  VirtualRobot robot(options.robot);
  robot.faults().onDie([] { ::kill(::getpid(), SIGKILL); });
  std::string error;
  if (!robot.start(error)) {
    std::fprintf(stderr, "virtual-robot: %s\n", error.c_str());
    return 1;
  }
  std::printf("ready: %s %s, %s body\n", options.robot.deviceId.c_str(),
              placeOf(options.robot).c_str(), bodyOf(options.robot));
  std::fflush(stdout);

  StatusLine line(options.robot.deviceId, terminal);
  PaceWatch pace;
  do {
    line.show(robot.status());
    warnOf(pace.look(robot.pace(), Pexal::PBase::CTime::getCurrentMilliSecond()));
  } while (!signals.wait(kRefreshMs));
  line.finish();
  robot.stop();
  const bool rendered = tellOfPictures(robot.film(), options.robot.render.file);
  const Pace whole = robot.pace();
  std::printf("real-time factor %.3f, %.2f %% of %llu steps late\n", whole.realTimeFactor,
              whole.latePercent, static_cast<unsigned long long>(whole.steps));
  return rendered ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.robot.simulation = simulationFromEnvironment();
  options.robot.body = kHasPhysics ? BodyKind::kPhysics : BodyKind::kKinematic;
  CLI::App app("", "virtual-robot");
  describe(app, options);
  const CLI::App& tellApp = describeTell(app, options);
  try {
    app.parse(argc, argv);
    settle(app, tellApp, options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  try {
    if (!tellApp.parsed()) return run(options);
  } catch (const std::exception& error) {  // a body that can't be made
    std::fprintf(stderr, "virtual-robot: %s\n", error.what());
    return 1;
  }
  logTo(options.verbose, false);
  return tell(options.robot, options.commands, options.timeoutMs);
}
