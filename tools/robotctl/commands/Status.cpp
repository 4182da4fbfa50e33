#include <cmath>
#include <memory>
#include <mutex>
#include <numbers>
#include <optional>
#include <utility>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Errors.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

constexpr std::uint32_t kStreamMs = 500;  // for its switch, and again for the first record
constexpr std::uint32_t kPollMs = 10;

/// The newest of the IMU, which the library's thread brings.
struct SeenImu {
  std::mutex mutex;  // guards newest
  std::optional<orvane::RobotSdk::ObservedImu> newest;
};

/// How the body is inclined, rad: only the observed stream tells. Null when nothing comes soon; the
/// rest is worth telling without it.
Json::Value attitudeOf(Robot& robot, SeenImu& seen) {
  std::string accepted;
  const char* const wish = R"({"motionEnable":true,"sensorEnable":false})";
  if (!robot.client().setMotionObservedEnable(wish, &accepted, kStreamMs)) return {};
  for (std::uint32_t waitedMs = 0; waitedMs < kStreamMs; waitedMs += kPollMs) {
    robot.context().interrupts.sleep(kPollMs);
    const std::lock_guard lock(seen.mutex);
    if (!seen.newest) continue;
    const orvane::RobotSdk::ObservedVector3 euler = seen.newest->euler;
    if (!std::isfinite(euler.x) || !std::isfinite(euler.y)) return {};
    Json::Value attitude;
    attitude["roll"] = euler.x;
    attitude["pitch"] = euler.y;
    return attitude;
  }
  return {};
}

std::string degrees(double radians) {
  return signedNumber(radians * 180 / std::numbers::pi, 0) + "°";
}

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
  const auto figure = [&](const char* name) {
    return signedNumber(numberAt(motion, std::string(member) + name).value_or(0), 2);
  };
  return "forward " + figure(".lineVelocityX") + " m/s, left " + figure(".lineVelocityY") +
         " m/s, turn " + figure(".velocity") + " rad/s";
}

/// What everybody asks first; the documents follow as they are.
std::string summary(const Robot& robot, const Json::Value& document) {
  const Json::Value& motion = document["motion"];
  const Json::Value& system = document["system"];
  const std::string holder = describeHolder(motion);
  std::vector<std::vector<std::string>> rows{
      {"robot", printable(robot.deviceNo())},
      {"posture", textAt(motion, "posture")},
      {"control", holder.empty() ? "free" : "held by " + holder},
      {"velocity", twistText(motion, "velocity")},
      {"position", describePlace(motion)},
      {"last refusal", refusalText(motion)},
  };
  const auto roll = numberAt(document, "attitude.roll");
  const auto pitch = numberAt(document, "attitude.pitch");
  if (roll && pitch) {
    rows.insert(rows.end() - 1,
                {"attitude", "roll " + degrees(*roll) + ", pitch " + degrees(*pitch)});
  }
  if (const std::string commands = describeMotorCommands(motion); !commands.empty()) {
    rows.push_back({"motor commands", commands});
  }
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
  const auto seen = std::make_shared<SeenImu>();
  RobotCallbacks callbacks;
  callbacks.motion = [seen](const orvane::RobotSdk::ObservedMotionRecord& record) {
    const std::lock_guard lock(seen->mutex);
    seen->newest = record.imu;
  };
  robot.connect(std::move(callbacks));
  Json::Value document;
  document["motion"] = robot.motionState();
  document["system"] = robot.systemStatus();
  if (Json::Value attitude = attitudeOf(robot, *seen); !attitude.isNull()) {
    document["attitude"] = std::move(attitude);
  }
  if (context.options.json) {
    document["robot"] = robot.deviceNo();
    context.output.json(document);
  } else {
    context.output.write(summary(robot, document));
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
