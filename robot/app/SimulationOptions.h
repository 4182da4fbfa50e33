#pragma once

#include <CLI/CLI.hpp>
#include <array>

#include "RobotSettings.h"

namespace orvane::robot {

/// What the environment variables of the library's low-level client say of domain and topics, read
/// as it reads them, so that robot and client agree when they share an environment. A domain that
/// can't be one is left for the robot to refuse.
[[nodiscard]] SimulationSettings simulationFromEnvironment();

/// The options for low-level clients on other machines; what `simulation` holds is their default.
void describeSimulation(CLI::App& app, SimulationSettings& simulation);

inline constexpr std::array<const char*, 9> kSimulationOptions{
    "--no-sim",          "--sim-domain",           "--control-topic",
    "--trc-topic",       "--observed-topic",       "--control-reliability",
    "--trc-reliability", "--observed-reliability", "--gamepad"};

}  // namespace orvane::robot
