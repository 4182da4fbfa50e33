#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

using orvane::RobotSdk::MotorLayout;

Json::Value motorsDocument(const MotorLayout& layout) {
  Json::Value motors(Json::arrayValue);
  for (std::uint32_t i = 0; i < layout.motorNum && i < orvane::RobotSdk::kMaxMotors; ++i) {
    Json::Value motor;
    motor["name"] = layout.motors[i].name;
    motor["limbNo"] = layout.motors[i].limbNo;
    motor["jointNo"] = layout.motors[i].jointNo;
    motors.append(std::move(motor));
  }
  return motors;
}

std::string motorsTable(const Json::Value& motors) {
  std::vector<std::vector<std::string>> rows{{"MOTOR", "LIMB", "JOINT", "NAME"}};
  for (Json::ArrayIndex i = 0; i < motors.size(); ++i) {
    rows.push_back({std::to_string(i), motors[i]["limbNo"].asString(),
                    motors[i]["jointNo"].asString(), textAt(motors[i], "name")});
  }
  return table(rows);
}

ExitCode info(Context& context) {
  Robot robot(context);
  robot.connect();
  Json::Value document;
  document["library"] = orvane::RobotSdk::IMotionSdkService::version();
  document["robot"] = robot.deviceNo();
  document["capabilities"] = robot.capabilities();
  document["versions"] = valueAt(robot.systemStatus(), "versions");
  document["motors"] = motorsDocument(robot.motorLayout());
  if (context.options.json) {
    context.output.json(document);
    return ExitCode::kDone;
  }
  Json::Value rest;
  rest["capabilities"] = document["capabilities"];
  rest["versions"] = document["versions"];
  context.output.write(
      table({{"robot", printable(robot.deviceNo())}, {"library", document["library"].asString()}}) +
      "\n" + flattened(rest) + "\n" + motorsTable(document["motors"]));
  return ExitCode::kDone;
}

}  // namespace

void addInfo(CLI::App& app, Context& context) {
  CLI::App& command =
      *app.add_subcommand("info", "What the robot is: versions, capabilities and ranges, motors");
  context.onSelected(command, [&context] { return info(context); });
}

}  // namespace robotctl
