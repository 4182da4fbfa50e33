#include <memory>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Errors.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

std::string refusalText(const Json::Value& motion) {
  const Json::Value& refusal = valueAt(motion, "lastRefusal");
  if (!refusal.isObject()) return "none";
  const double number = numberAt(refusal, "errno").value_or(0);
  std::string text =
      textAt(refusal, "method") + " of " + textAt(refusal, "clientId") + ": " +
      textAt(refusal, "reason") + " [" +
      reasonText(number >= 0 && number < 1e6 ? static_cast<std::uint32_t>(number) : 0) + "]";
  const auto now = numberAt(motion, "timeMs");
  const auto then = numberAt(refusal, "atMs");
  if (now && then && *now >= *then) {
    text += ", " + duration(static_cast<std::uint64_t>(*now - *then)) + " ago";
  }
  return text;
}

std::string twistText(const Json::Value& motion, const char* member) {
  const std::string path(member);
  return format("forward %+.2f m/s, left %+.2f m/s, turn %+.2f rad/s",
                numberAt(motion, path + ".lineVelocityX").value_or(0),
                numberAt(motion, path + ".lineVelocityY").value_or(0),
                numberAt(motion, path + ".velocity").value_or(0));
}

/// What everybody asks first; the documents follow as they are.
std::string summary(const Robot& robot, const Json::Value& motion, const Json::Value& system) {
  const std::string holder = describeHolder(motion);
  std::vector<std::vector<std::string>> rows{
      {"robot", printable(robot.deviceNo())},
      {"posture", textAt(motion, "posture")},
      {"control", holder.empty() ? "free" : "held by " + holder},
      {"velocity", twistText(motion, "velocity")},
      {"position",
       format("x %+.2f m, y %+.2f m, yaw %+.2f rad", numberAt(motion, "odometry.x").value_or(0),
              numberAt(motion, "odometry.y").value_or(0),
              numberAt(motion, "odometry.yaw").value_or(0))},
      {"last refusal", refusalText(motion)},
  };
  if (const auto charge = numberAt(system, "battery.chargePercent")) {
    rows.push_back({"battery", format("%.0f %%", *charge)});
  }
  if (const auto hottest = numberAt(system, "motors.maxTemperature")) {
    rows.push_back({"motors", format("%.0f °C at most", *hottest)});
  }
  return table(rows);
}

ExitCode status(bool all, Context& context) {
  Robot robot(context);
  robot.connect();
  Json::Value document;
  document["motion"] = robot.motionState();
  document["system"] = robot.systemStatus();
  if (context.options.json) {
    document["robot"] = robot.deviceNo();
    context.output.json(document);
  } else {
    context.output.write(summary(robot, document["motion"], document["system"]));
    if (all) context.output.write("\n" + flattened(document));
  }
  return ExitCode::kDone;
}

}  // namespace

void addStatus(CLI::App& app, Context& context) {
  CLI::App& command = *app.add_subcommand(
      "status", "What the robot does, who holds control, what it refused last, how it is");
  auto all = std::make_shared<bool>(false);
  command.add_flag("--all", *all, "Everything that the robot tells, value by value");
  context.onSelected(command, [all, &context] { return status(*all, context); });
}

}  // namespace robotctl
