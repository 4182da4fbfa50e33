#include "core/Completion.h"

#include "commands/Commands.h"

namespace robotctl {

void addCompletion(CLI::App& app, Context& context) {
  CLI::App& command =
      *app.add_subcommand("completion", "Prints what a shell needs to complete command lines");
  command.require_subcommand(1);
  command.footer(
      "bash: source <(robotctl completion bash)\nzsh:  source <(robotctl completion zsh)");
  CLI::App& bash = *command.add_subcommand("bash", "For bash");
  context.onSelected(bash, [&context] {
    context.output.write(bashCompletion());
    return ExitCode::kDone;
  });
  CLI::App& zsh = *command.add_subcommand("zsh", "For zsh");
  context.onSelected(zsh, [&context] {
    context.output.write(zshCompletion());
    return ExitCode::kDone;
  });
  // For the build, not for people.
  CLI::App& manual = *app.add_subcommand("manual", "Prints the manual page")->group("");
  context.onSelected(manual, [&context] {
    context.output.write(manualPage(*context.app));
    return ExitCode::kDone;
  });
}

}  // namespace robotctl
