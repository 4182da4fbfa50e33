#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <memory>
#include <utility>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

using Client = Robot::Client;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kPostureMs = 20000;
constexpr std::uint32_t kRefreshMs = 200;  // the robot stops when none comes for a second
constexpr double kMostSpeed = 100;  // the robot knows its own limits; this is nonsense to any

/// A command that is one request, and the posture it ends in.
struct Action {
  const char* name;
  const char* description;
  const char* request;
  bool (Client::*call)(std::uint32_t timeoutMs);
  const char* posture;  // "": as soon as it stands still
  const char* footer;
  bool urgent = false;  // whoever waits for control has to know that nothing has stopped yet
};

constexpr const char* kNeedsControl =
    "It needs control: while another program holds it nothing is stopped. Then end that program\n"
    "(Ctrl-C there), or use the robot's own switch.";

constexpr std::array<Action, 5> kActions{{
    {"stand", "Has the robot stand up", "standing", &Client::standing, "standing", ""},
    {"lie", "Has the robot lie down", "laying", &Client::laying, "lying", ""},
    {"recover", "Has the robot stand up from any pose; lifts an emergency stop", "recoveryStand",
     &Client::recoveryStand, "standing", ""},
    {"stop", "Has the robot stop walking", "stopMotionAction", &Client::stopMotionAction, "",
     kNeedsControl, true},
    {"estop", "Emergency stop: the motors only damp until robotctl recover", "emergencyStopMotion",
     &Client::emergencyStopMotion, "emergencyStop",
     "It needs control, which takes about three seconds, and while another program holds it "
     "nothing\n"
     "is stopped: it is no substitute for the robot's own emergency switch.",
     true},
}};

/// How it ended: a document with --json, else a note.
void tell(Context& context, const Robot& robot, const char* action, const Json::Value& state,
          const std::string& note) {
  if (!context.options.json) return context.output.note(robot.name() + ": " + note);
  Json::Value document;
  document["robot"] = robot.deviceNo();
  document["action"] = action;
  document["posture"] = valueAt(state, "posture");
  if (valueAt(state, "odometry").isObject()) document["odometry"] = valueAt(state, "odometry");
  context.output.json(document);
}

ExitCode perform(const Action& action, bool wait, Context& context) {
  Robot robot(context);
  robot.connect();
  robot.take(action.urgent ? Robot::Waiting::kStillMoving : Robot::Waiting::kPatient);
  robot.request(action.request, [&](Client& client, std::uint32_t timeoutMs) {
    return (client.*action.call)(timeoutMs);
  });
  if (wait && action.posture[0] != '\0') robot.waitForPosture(action.posture, kPostureMs);
  if (wait && action.posture[0] == '\0') robot.waitUntilStopped(kPostureMs);
  const Json::Value state = robot.motionState();
  robot.release();
  const std::string posture = textAt(state, "posture");
  tell(context, robot, action.name, state, posture.empty() ? "done" : posture);
  return ExitCode::kDone;
}

struct Walk {
  double forward = 0;
  double left = 0;
  double turn = 0;
  std::uint32_t forMs = 0;
  bool wait = true;
};

ExitCode walk(const Walk& options, Context& context) {
  Robot robot(context);
  robot.connect();
  robot.take();
  bool accepted = false;
  const auto end = Clock::now() + std::chrono::milliseconds(options.forMs);
  for (auto now = Clock::now(); now < end; now = Clock::now()) {
    robot.walk(static_cast<float>(options.forward), static_cast<float>(options.left),
               static_cast<float>(options.turn));
    if (!std::exchange(accepted, true)) {
      context.output.note("Walking for " + duration(options.forMs) + "; Ctrl-C stops ...");
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    robot.pause(static_cast<std::uint32_t>(std::clamp<long long>(left, 0, kRefreshMs)));
  }
  robot.stop();
  if (options.wait) robot.waitUntilStopped(kPostureMs);
  const Json::Value state = robot.motionState();
  robot.release();
  tell(context, robot, "walk", state, textAt(state, "posture") + " at " + describePlace(state));
  return ExitCode::kDone;
}

void addNoWait(CLI::App& command, bool& wait) {
  command.add_flag_callback(
      "--no-wait", [&wait] { wait = false; }, "Return when the robot has begun");
}

void addSpeed(CLI::App& command, const char* name, double& value, const char* description) {
  command
      .add_option_function<double>(
          name,
          [&value, name](const double& given) {
            if (!(std::abs(given) <= kMostSpeed)) throw CLI::ValidationError(name, "is no speed");
            value = given;
          },
          description)
      ->type_name("")
      ->required();
}

void addWalk(CLI::App& app, Context& context) {
  CLI::App& command = *app.add_subcommand("walk", "Walks for some time and stops");
  auto options = std::make_shared<Walk>();
  addSpeed(command, "VX", options->forward, "Forward, m/s");
  addSpeed(command, "VY", options->left, "To the left, m/s");
  addSpeed(command, "WZ", options->turn, "Turn, rad/s, counter-clockwise seen from above");
  addSeconds(command, "--for", options->forMs, "How long to walk", 0.1, 3600)->required();
  addNoWait(command, options->wait);
  command.footer(
      "The robot has to stand (robotctl stand). Backwards: robotctl walk -0.2 0 0 --for 3");
  context.onSelected(command, [options, &context] { return walk(*options, context); });
}

}  // namespace

void addMotion(CLI::App& app, Context& context) {
  for (const Action& action : kActions) {
    CLI::App& command = *app.add_subcommand(action.name, action.description);
    auto wait = std::make_shared<bool>(true);
    addNoWait(command, *wait);
    command.footer(action.footer);
    context.onSelected(command,
                       [&action, wait, &context] { return perform(action, *wait, context); });
  }
  addWalk(app, context);
}

}  // namespace robotctl
