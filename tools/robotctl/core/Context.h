#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <utility>

#include "core/ExitCode.h"
#include "core/Options.h"
#include "core/Output.h"
#include "core/Signals.h"

namespace robotctl {

/// What main() and the subcommands share. Made once, before any thread.
///
/// A subcommand is one function `void addX(CLI::App& app, Context& context)` in commands/X.cpp,
/// declared in commands/Commands.h, called in main.cpp's list (add your line there). It adds its
/// CLI11 subcommand and names what it does with `onSelected`; the options' variables live in a
/// shared_ptr that the action holds:
///
///     void addStand(CLI::App& app, Context& context) {
///       struct Options { bool slowly = false; };
///       auto options = std::make_shared<Options>();
///       CLI::App& command = *app.add_subcommand("stand", "Has the robot stand up");
///       command.add_flag("--slowly", options->slowly, "Takes its time");
///       context.onSelected(command, [options, &context] {
///         Robot robot(context);
///         robot.connect();
///         ...
///         return ExitCode::kDone;
///       });
///     }
///
/// The action runs when the whole command line has been read and is right, on the main thread. It
/// says what went wrong by throwing Failure and lets Interrupted and OutputClosed pass (both are no
/// std::exception; `catch (...)` must rethrow). Options: check ranges with CLI11's checks, so that
/// a wrong one is exit 2 before anything moves; a Failure with kUsage does for the rest.
///
/// The help, the completion and the manual page are made from the CLI11 app: describe every option
/// in one line, give values a type name where "TEXT" says too little (->type_name("FILE"): files
/// are completed), CLI::IsMember for words (they are completed).
struct Context {
  CommonOptions options;
  Interrupts interrupts;
  Output output{options, interrupts};
  CLI::App* app = nullptr;  ///< the whole program, for completion and the manual page
  std::function<ExitCode()> action;

  void onSelected(CLI::App& command, std::function<ExitCode()> what) {
    command.callback([this, todo = std::move(what)] { action = todo; });
  }
};

}  // namespace robotctl
