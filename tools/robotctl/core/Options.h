#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

namespace robotctl {

/// The options that every subcommand has. They may stand before or after the subcommand's name, so
/// no subcommand may use one of these names (or -h, --help, --version) for something else.
struct CommonOptions {
  std::string robot;         ///< --robot ID (or ROBOTCTL_ROBOT); "": the one robot that answers
  std::string interface;     ///< --interface NAME (or ROBOTCTL_INTERFACE); "": DDS chooses
  std::string config;        ///< --config FILE: the library's configuration; "": none
  bool boardMaster = false;  ///< --board-master: on a robot's board, command through the brain
  bool json = false;     ///< --json: data as JSON on standard output, failures on standard error
  bool quiet = false;    ///< -q, --quiet: no notes on what is going on
  bool verbose = false;  ///< -v, --verbose: the library's log on standard error
  std::uint32_t timeoutMs = 3000;  ///< --timeout SECONDS: for the answer to one request, 0.1 to 600
  std::uint32_t findMs = 5000;     ///< --find-timeout SECONDS: to look for robots, 0.1 to 600
  std::uint32_t controlMs = 10000;  ///< --control-timeout SECONDS: to obtain control, 0.1 to 600
};

/// Adds them to the program. Called by main() before the subcommands are added.
void addCommonOptions(CLI::App& app, CommonOptions& options);

/// An option or positional argument in seconds ("2", "0.5") that is kept in whole milliseconds.
/// `leastSeconds` and `mostSeconds` bound it; what lies outside is a usage error. The value that
/// `milliseconds` has now is the default and is shown in the help.
CLI::Option* addSeconds(CLI::App& app, const std::string& name, std::uint32_t& milliseconds,
                        const std::string& description, double leastSeconds, double mostSeconds);

/// For ->check(): 0 to what 32 bits hold. What lies outside is a usage error that says so.
[[nodiscard]] CLI::Validator wholeNumber();

}  // namespace robotctl
