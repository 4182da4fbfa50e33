#include <memory>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

constexpr std::uint32_t kSliceMs = 3600'000;

struct Options {
  std::uint32_t forMs = 0;  // 0: until a signal comes
  std::uint32_t leaseMs = 10000;
};

void tell(Context& context, const Robot& robot, const char* what, const Json::Value& control) {
  if (!context.options.json) {
    context.output.line("control of " + robot.name() + " " + what);
    return;
  }
  Json::Value document;
  document["robot"] = robot.deviceNo();
  document["event"] = what;
  if (control.isObject()) document["control"] = control;
  context.output.jsonLine(document);
}

ExitCode take(const Options& options, Context& context) {
  Robot robot(context);
  robot.connect({}, options.leaseMs);
  robot.take();
  tell(context, robot, "obtained", valueAt(robot.motionState(), "control"));
  context.output.note(options.forMs > 0 ? "Holding it for " + duration(options.forMs) + " ..."
                                        : "Holding it; Ctrl-C gives it back ...");
  if (options.forMs > 0) {
    robot.pause(options.forMs);
  } else {
    while (true) robot.pause(kSliceMs);
  }
  robot.release();
  tell(context, robot, "given back", {});
  return ExitCode::kDone;
}

}  // namespace

void addTake(CLI::App& app, Context& context) {
  CLI::App& command =
      *app.add_subcommand("take", "Takes control of the robot and holds it until Ctrl-C");
  auto options = std::make_shared<Options>();
  addSeconds(command, "--for", options->forMs, "Hold it that long and give it back", 0.1, 86400);
  addSeconds(command, "--lease", options->leaseMs,
             "How long the robot keeps it for a program that died", 1, 600);
  context.onSelected(command, [options, &context] { return take(*options, context); });
}

}  // namespace robotctl
