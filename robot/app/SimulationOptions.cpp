#include "app/SimulationOptions.h"

#include <cstdlib>
#include <limits>
#include <string>

#include "pbase/System.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::getEnvVariable;

void addReliability(CLI::App& app, const char* name, bool& reliable, const char* text) {
  const auto set = [name, &reliable](const std::string& word) {
    const std::string lower = CLI::detail::to_lower(word);
    reliable = lower == "reliable";
    if (!reliable && lower != "best_effort") {
      throw CLI::ValidationError(name, "must be RELIABLE or BEST_EFFORT");
    }
  };
  app.add_option_function<std::string>(name, set, text)
      ->default_str(reliable ? "RELIABLE" : "BEST_EFFORT");
}

}  // namespace

SimulationSettings simulationFromEnvironment() {
  SimulationSettings settings;
  const std::string domain = getEnvVariable("ORVANE_MOTION_DDS_DOMAIN");
  if (!domain.empty()) {
    const long number = std::strtol(domain.c_str(), nullptr, 10);
    constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
    settings.domain = number < 0 || number > kNone ? kNone : static_cast<std::uint32_t>(number);
  }
  settings.controlTopic = getEnvVariable("ORVANE_MOTION_CONTROL_TOPIC", settings.controlTopic);
  settings.observedTopic = getEnvVariable("ORVANE_MOTION_OBSERVED_TOPIC", settings.observedTopic);
  settings.trcTopic = getEnvVariable("ORVANE_MOTION_TRC_TOPIC", settings.trcTopic);
  return settings;
}

void describeSimulation(CLI::App& app, SimulationSettings& simulation) {
  app.add_flag_callback(
      "--no-sim", [&simulation] { simulation.enabled = false; },
      "Takes no motor commands over DDS and shows no game pad");
  app.add_option("--sim-domain", simulation.domain,
                 "DDS domain of low-level clients (ORVANE_MOTION_DDS_DOMAIN)")
      ->capture_default_str()
      ->check(CLI::Range(0, 230));
  app.add_option("--control-topic", simulation.controlTopic,
                 "Where their motor commands are taken (ORVANE_MOTION_CONTROL_TOPIC)")
      ->capture_default_str();
  app.add_option("--observed-topic", simulation.observedTopic,
                 "Where the motors' state is shown (ORVANE_MOTION_OBSERVED_TOPIC)")
      ->capture_default_str();
  app.add_option("--trc-topic", simulation.trcTopic,
                 "Where the game pad is shown (ORVANE_MOTION_TRC_TOPIC)")
      ->capture_default_str();
  addReliability(app, "--control-reliability", simulation.reliableControl,
                 "RELIABLE doesn't hear clients that write best effort");
  addReliability(app, "--observed-reliability", simulation.reliableObserved,
                 "BEST_EFFORT doesn't reach clients that read reliably");
  addReliability(app, "--trc-reliability", simulation.reliableTrc,
                 "BEST_EFFORT doesn't reach clients that read reliably");
  app.add_option("--gamepad", simulation.gamepad,
                 "The hand-held remote control: a joystick device (/dev/input/js0), a FIFO of its\n"
                 "events, or a script (docs/virtual-robot.md)");
}

}  // namespace orvane::robot
