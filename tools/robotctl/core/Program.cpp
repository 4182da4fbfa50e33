#include "core/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "core/Completion.h"
#include "core/Failure.h"
#include "core/Robot.h"
#include "core/Text.h"
#include "orvane/RobotSdk/IMotionSdkService.h"

namespace robotctl {
namespace {

constexpr std::uint32_t kCompletionMs = 700;  // somebody waits at a prompt

constexpr const char* kFooter =
    "Exit status: 0 done, 1 refused or failed, 2 wrong command line, 3 no robot found, 4 control "
    "not\n"
    "obtained or lost, 5 no answer in time, 6 this machine isn't set up, 130 interrupted "
    "(Ctrl-C).\n"
    "A virtual robot speaks on lo: robotctl --interface lo discover";

void describe(CLI::App& app, Context& context) {
  app.name("robotctl");
  app.description("Finds robots, looks at them and drives them.");
  app.set_version_flag("--version",
                       std::string("robotctl " ROBOTCTL_VERSION ", library ") +
                           orvane::RobotSdk::IMotionSdkService::version(),
                       "Versions of this program and of the library");
  app.require_subcommand(1);
  app.fallthrough();  // inherited: the common options may stand behind the subcommand, too
  addCommonOptions(app, context.options);
}

/// CLI11 takes "-.5" for a bundle of options; "-0.5" is a number to it.
std::string withLeadingZero(std::string_view word) {
  if (word.size() > 2 && word[0] == '-' && word[1] == '.' && word[2] >= '0' && word[2] <= '9') {
    return "-0" + std::string(word.substr(1));
  }
  return std::string(word);
}

/// The innermost subcommand that the command line names.
const CLI::App& selected(const CLI::App& app) {
  const CLI::App* innermost = &app;
  while (!innermost->get_subcommands().empty()) innermost = innermost->get_subcommands().front();
  return *innermost;
}

std::string pathOf(const CLI::App& app) {
  if (app.get_parent() == nullptr) return app.get_name();
  return pathOf(*app.get_parent()) + " " + app.get_name();
}

Failure wrongCommandLine(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = selected(app);
  std::string text = error.what();
  // It says that a subcommand is missing, of one that doesn't exist; the word has fallen through to
  // the program.
  const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  const std::vector<std::string> unknown = app.remaining(true);
  if (missing && !command.get_subcommands({}).empty() && !unknown.empty()) {
    const bool option = unknown.front().starts_with('-');
    text = pathOf(command) + " has no " + (option ? "option" : "subcommand") + " '" +
           printable(unknown.front()) + "'";
  }
  return Failure(ExitCode::kUsage, text, pathOf(command) + " --help");
}

void parse(CLI::App& app, int argc, char** argv) {
  std::vector<std::string> words;
  for (int i = argc - 1; i > 0; --i) words.push_back(withLeadingZero(argv[i]));
  app.parse(words);  // in this order: it takes them from the back
}

/// Closed standard streams ("robotctl status >&-") would lend their numbers to what is opened next,
/// and the robot's data go there. What stands in their place can't be used either.
void occupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0) continue;
    // Takes the lowest free number, which is this one.
    static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

/// The ids of the robots that answer within a moment, for the completion; none where the library
/// can't start.
std::vector<std::string> robotsForCompletion(Context& context, const std::string& interface) {
  context.options.interface = interface;
  context.options.quiet = true;
  std::vector<std::string> ids;
  try {
    Robot service(context);
    if (service.onBoard()) return ids;
    for (const FoundRobot& robot : service.discover(kCompletionMs)) ids.push_back(robot.deviceNo);
  } catch (const Failure&) {
    // Nothing to offer. A word on it would spoil the line that is being typed.
  }
  return ids;
}

ExitCode carryOut(CLI::App& app, Context& context, int argc, char** argv) {
  try {
    parse(app, argc, argv);
  } catch (const CLI::CallForHelp&) {
    const CLI::App& command = selected(app);
    context.output.write(command.help(
        command.get_parent() != nullptr ? pathOf(*command.get_parent()) : std::string()));
    return ExitCode::kDone;
  } catch (const CLI::CallForVersion& version) {
    context.output.line(version.what());
    return ExitCode::kDone;
  } catch (const CLI::ParseError& error) {
    // Also where it wasn't read so far.
    const auto isJson = [](std::string_view word) { return word == "--json"; };
    context.options.json = context.options.json || std::any_of(argv, argv + argc, isJson);
    throw wrongCommandLine(app, error);
  }
  return context.action ? context.action() : ExitCode::kDone;
}

}  // namespace

int runProgram(int argc, char** argv, const std::vector<void (*)(CLI::App&, Context&)>& commands) {
  occupyStandardStreams();
  Context context;
  CLI::App app;
  context.app = &app;
  try {
    describe(app, context);
    for (const auto add : commands) add(app, context);
    app.footer(kFooter);  // now, or all of them would inherit it
    if (argc > 2 && std::string_view(argv[1]) == "completion" &&
        std::string_view(argv[2]) == "words") {
      // Not through CLI11, which would read the words as options.
      const auto findRobots = [&context](const std::string& interface) {
        return robotsForCompletion(context, interface);
      };
      context.output.write(completionWords(app, {argv + 3, argv + argc}, findRobots));
      return static_cast<int>(ExitCode::kDone);
    }
    return static_cast<int>(carryOut(app, context, argc, argv));
  } catch (const Interrupted& interrupted) {
    return static_cast<int>(ExitCode::kSignalBase) + interrupted.signal;
  } catch (const OutputClosed&) {
    return static_cast<int>(ExitCode::kOutputClosed);
  } catch (const Failure& failure) {
    context.output.failure(failure);
    return static_cast<int>(failure.code());
  } catch (const std::exception& error) {
    context.output.failure(Failure(ExitCode::kSetup, std::string("unexpected: ") + error.what()));
    return static_cast<int>(ExitCode::kSetup);
  }
}

}  // namespace robotctl
