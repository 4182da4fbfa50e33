#include "core/Options.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include "core/Text.h"

namespace robotctl {
namespace {

constexpr double kLeastSeconds = 0.1;
constexpr double kMostSeconds = 600;

std::string secondsText(double seconds) {
  return format("%g", seconds);
}

}  // namespace

CLI::Option* addSeconds(CLI::App& app, const std::string& name, std::uint32_t& milliseconds,
                        const std::string& description, double leastSeconds, double mostSeconds) {
  const auto assign = [&milliseconds, name, leastSeconds, mostSeconds](const double& seconds) {
    // Written so that a NaN fails.
    if (!(seconds >= leastSeconds && seconds <= mostSeconds)) {
      throw CLI::ValidationError(name, "takes " + secondsText(leastSeconds) + " to " +
                                           secondsText(mostSeconds) + " seconds");
    }
    milliseconds = static_cast<std::uint32_t>(std::lround(seconds * 1000));
  };
  CLI::Option* option =
      app.add_option_function<double>(name, assign, description)->type_name("SECONDS");
  if (milliseconds != 0) option->default_str(secondsText(milliseconds / 1000.0));
  return option;
}

CLI::Validator wholeNumber() {
  constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max();
  CLI::Range range(std::int64_t{0}, kMost);
  range.description("");  // help stays short
  return range;
}

void addCommonOptions(CLI::App& app, CommonOptions& options) {
  app.add_option("--robot", options.robot,
                 "Device id of the robot; the one that answers if left out")
      ->type_name("ID")
      ->envname("ROBOTCTL_ROBOT");
  app.add_option("--interface", options.interface,
                 "Network interface to find it on; DDS chooses if left out")
      ->type_name("NAME")
      ->envname("ROBOTCTL_INTERFACE");
  app.add_option("--config", options.config, "Configuration file of the library")
      ->type_name("FILE");
  app.add_flag("--board-master", options.boardMaster,
               "On a robot's board: command through the brain board, not the motion board");
  app.add_flag("--json", options.json, "Data as JSON, failures as JSON on standard error");
  addSeconds(app, "--timeout", options.timeoutMs, "How long to wait for an answer", kLeastSeconds,
             kMostSeconds);
  addSeconds(app, "--find-timeout", options.findMs, "How long to look for the robot", kLeastSeconds,
             kMostSeconds);
  addSeconds(app, "--control-timeout", options.controlMs, "How long to try to obtain control",
             kLeastSeconds, kMostSeconds);
  app.add_flag("-q,--quiet", options.quiet, "No notes on what is going on");
  app.add_flag("-v,--verbose", options.verbose, "The library's log on standard error");
}

}  // namespace robotctl
