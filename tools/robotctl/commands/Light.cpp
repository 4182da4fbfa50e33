#include <memory>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Robot.h"

namespace robotctl {
namespace {

using Client = Robot::Client;

ExitCode get(Context& context) {
  Robot robot(context);
  robot.connect();
  robot.take();  // the robot wants that even from who only looks
  const Json::Value answer = robot.query("getCameraLightBrightness",
                                         [](Client& client, std::string* out, std::uint32_t ms) {
                                           return client.getCameraLightBrightness(out, ms);
                                         });
  robot.release();
  context.options.json ? context.output.json(answer) : context.output.write(flattened(answer));
  return ExitCode::kDone;
}

ExitCode set(std::uint32_t brightness, Context& context) {
  Robot robot(context);
  robot.connect();
  robot.take();
  robot.request("setCameraLightBrightness", [&](Client& client, std::uint32_t ms) {
    return client.setCameraLightBrightness(brightness, ms);
  });
  robot.release();
  return ExitCode::kDone;
}

}  // namespace

void addLight(CLI::App& app, Context& context) {
  CLI::App& command = *app.add_subcommand("light", "The camera's light");
  command.require_subcommand(1);
  CLI::App& getting = *command.add_subcommand("get", "Prints how bright it is");
  context.onSelected(getting, [&context] { return get(context); });
  CLI::App& setting = *command.add_subcommand("set", "Sets how bright it is");
  auto brightness = std::make_shared<std::uint32_t>(0);
  setting.add_option("BRIGHTNESS", *brightness, "0: dark; the virtual robot's goes up to 100")
      ->type_name("")
      ->check(wholeNumber())
      ->required();
  context.onSelected(setting, [brightness, &context] { return set(*brightness, context); });
}

}  // namespace robotctl
