// virtual-robot: a robot for people who have none at hand.

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "VirtualRobot.h"
#include "app/SignalWaiter.h"
#include "app/SimulationOptions.h"
#include "app/StatusLine.h"
#include "app/Tell.h"
#include "faults/FaultCommand.h"
#include "pbase/ILogger.h"

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
  app.add_option(
         "--body", options.robot.body,
         "kinematic: follows its commands, cheap enough for fleets; physics: has weight, and\n"
         "falls when its legs don't carry it. Default: physics where MuJoCo was there to build "
         "with")
      ->transform(CLI::CheckedTransformer(std::map<std::string, BodyKind>{
          {"kinematic", BodyKind::kKinematic}, {"physics", BodyKind::kPhysics}}))
      ->default_str(bodyOf(options.robot));
  app.add_option(
         "--seed", options.robot.seed,
         "With physics: one robot of many that differ in weight, friction and noise; 0: as drawn")
      ->capture_default_str();
  CLI::Option* const render = app.add_option(
      "--render", options.robot.render.file,
      "Pictures of its body with physics, no screen needed: FILE.png is renewed each second,\n"
      "FILE.webp is an animation, written when it is full or the robot ends");
  app.add_option("--render-seconds", options.robot.render.seconds,
                 "How long the animation lasts at most; it pauses while nothing moves")
      ->capture_default_str()
      ->check(CLI::Range(1.0, 600.0))
      ->needs(render);
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
  if (app.count("--render") > 0 && options.robot.render.file.empty()) {
    refuse(app, Names{"--render"}, "names no file");
  }
  if (options.robot.render.file.ends_with(".png")) {
    refuse(app, Names{"--render-seconds"}, "is for an animation, FILE.webp");
  }
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
  std::printf("%s: %zu pictures, %.1f s\n", file.c_str(), report.pictures, report.seconds);
  return true;
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
  do {
    line.show(robot.status());
  } while (!signals.wait(kRefreshMs));
  line.finish();
  robot.stop();
  const bool rendered = tellOfPictures(robot.film(), options.robot.render.file);
  const Pace pace = robot.pace();
  std::printf("real-time factor %.3f, %.2f %% of %llu steps late\n", pace.realTimeFactor,
              pace.latePercent, static_cast<unsigned long long>(pace.steps));
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
