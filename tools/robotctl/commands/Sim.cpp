#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands/Commands.h"
#include "core/Failure.h"
#include "core/Robot.h"
#include "core/Text.h"
#include "doctor/Machine.h"

namespace robotctl {
namespace {

namespace fs = std::filesystem;

constexpr char kProgram[] = "virtual-robot";
// What it goes by where its options say nothing.
constexpr char kDeviceId[] = "VR-0001";
constexpr char kInterface[] = "lo";
constexpr char kDomain[] = "42";  // the library knows no other
constexpr std::uint32_t kLookMs = 700;
/// From robotctl's own directory: beside it, where packages hide programs, in a build tree.
constexpr const char* kPlaces[] = {".", "../libexec", "../../robot"};

bool isProgram(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

std::vector<fs::path> searchPath() {
  std::vector<fs::path> directories;
  const char* const path = std::getenv("PATH");
  std::string_view rest = path != nullptr ? path : "";
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    if (end > 0) directories.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return directories;
}

fs::path findProgram() {
  std::error_code error;
  const fs::path own = fs::read_symlink("/proc/self/exe", error).parent_path();
  std::vector<fs::path> directories;
  if (!error) {
    for (const char* const place : kPlaces) directories.push_back(own / place);
  }
  const auto path = searchPath();
  directories.insert(directories.end(), path.begin(), path.end());
  for (const fs::path& directory : directories) {
    if (isProgram(directory / kProgram)) return (directory / kProgram).lexically_normal();
  }
  throw Failure(
      ExitCode::kSetup,
      std::string("there is no program ") + kProgram + " beside robotctl, in ../libexec or in PATH",
      "sudo apt install robotmotionsdk-tools, or put its directory into PATH");
}

bool has(const std::vector<std::string>& words, std::string_view wanted) {
  return std::any_of(words.begin(), words.end(), [&](const std::string& word) {
    return word == wanted || word.starts_with(std::string(wanted) + '=');
  });
}

/// What virtual-robot is called with: what stands behind "sim", and the common options before it
/// that it knows too.
std::vector<std::string> commandLine(const CommonOptions& options,
                                     const std::vector<std::string>& given) {
  std::vector<std::string> words{kProgram};
  const bool host = !has(given, "--board") || has(given, "--host");
  if (!options.interface.empty() && host && !has(given, "--interface")) {
    words.insert(words.end(), {"--interface", options.interface});
  }
  if (!options.robot.empty() && !has(given, "--device-id")) {
    words.insert(words.end(), {"--device-id", options.robot});
  }
  if (options.verbose) words.emplace_back("--verbose");
  words.insert(words.end(), given.begin(), given.end());
  return words;
}

/// What an option says, in either form.
std::string valueOf(const std::vector<std::string>& words, const std::string& option,
                    const std::string& otherwise) {
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (words[at] == option && at + 1 < words.size()) return words[at + 1];
    if (words[at].starts_with(option + '=')) return words[at].substr(option.size() + 1);
  }
  return otherwise;
}

/// Whether a robot with this device id answers where the new one would be.
bool isTaken(Context& context, const std::string& deviceId, const std::string& interface) {
  const CommonOptions before = context.options;
  context.options.interface = interface;
  bool taken = false;
  try {
    Robot service(context);
    const auto isIt = [&](const FoundRobot& robot) { return robot.deviceNo == deviceId; };
    const auto among = [&](const std::vector<FoundRobot>& robots) {
      return std::any_of(robots.begin(), robots.end(), isIt);
    };
    taken = among(service.discover(kLookMs, among));
  } catch (const Failure&) {
    // What keeps this machine from looking the robot itself says better.
  }
  context.options = before;
  return taken;
}

/// Two robots with one device id can't be told apart: they would both do what one is told.
void refuseSecond(Context& context, const std::vector<std::string>& words) {
  constexpr std::array<const char*, 4> kStartNone{"tell", "--help", "-h", "--version"};
  const bool starts = std::none_of(kStartNone.begin(), kStartNone.end(),
                                   [&](const char* word) { return has(words, word); });
  const bool host = !has(words, "--board") || has(words, "--host");
  if (!starts || !host || valueOf(words, "--domain", kDomain) != kDomain) return;
  if (doctor::lookAtMachine(context.options).board) return;
  const std::string deviceId = valueOf(words, "--device-id", kDeviceId);
  const std::string interface = valueOf(words, "--interface", kInterface);
  if (!isTaken(context, deviceId, interface)) return;
  throw Failure(ExitCode::kRefused,
                "a robot " + printable(deviceId) + " answers on " + printable(interface) +
                    " already; two with one device id can't be told apart",
                "another name: robotctl sim --device-id NAME");
}

/// Becomes the virtual robot: terminal, signals and exit status are its own.
ExitCode becomeRobot(Context& context, const std::vector<std::string>& given) {
  const fs::path program = findProgram();
  std::vector<std::string> words = commandLine(context.options, given);
  refuseSecond(context, words);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  context.interrupts.check();
  Interrupts::restoreDefaults();
  ::execv(program.c_str(), arguments.data());
  throw Failure(ExitCode::kSetup, "can't start " + program.string() + ": " + std::strerror(errno));
}

}  // namespace

void addSim(CLI::App& app, Context& context) {
  CLI::App& command = *app.add_subcommand(
      "sim", "Starts a virtual robot here, until Ctrl-C; options behind it are the robot's");
  command.footer("All options of virtual-robot: robotctl sim --help");
  // Everything behind "sim" is for the virtual robot, its --help and --interface too.
  command.fallthrough(false);
  command.set_help_flag();
  command.prefix_command();
  command.allow_extras();
  context.onSelected(command,
                     [&command, &context] { return becomeRobot(context, command.remaining()); });
}

}  // namespace robotctl
