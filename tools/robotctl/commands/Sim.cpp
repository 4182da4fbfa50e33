#include <unistd.h>

#include <algorithm>
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

namespace robotctl {
namespace {

namespace fs = std::filesystem;

constexpr char kProgram[] = "virtual-robot";
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

/// Becomes the virtual robot: terminal, signals and exit status are its own.
ExitCode becomeRobot(const Context& context, const std::vector<std::string>& given) {
  const fs::path program = findProgram();
  std::vector<std::string> words = commandLine(context.options, given);
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
