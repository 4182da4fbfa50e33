#pragma once

#include <json/json.h>

#include <string>
#include <string_view>

#include "core/Options.h"
#include "core/Signals.h"

namespace robotctl {

class Failure;

/// Standard output for data, standard error for messages. Nothing else of the program writes there
/// (no std::cout, no printf): this is what notices a closed pipe, a full disk, and Ctrl-C while a
/// pager holds the pipe up.
///
/// Data members throw OutputClosed when nobody reads any more, Failure (kSetup) when it can't be
/// written, Interrupted when a signal comes while a reader keeps it waiting; nothing is buffered.
/// Messages never throw. Used by one thread, but for `log`, which any thread may call.
class Output {
 public:
  Output(const CommonOptions& options, const Interrupts& interrupts)
      : options_(options), interrupts_(interrupts) {}

  /// As it is, escape sequences and all.
  void write(std::string_view text) const;
  /// With a line end.
  void line(std::string_view text) const;
  /// A document of several, indented lines; for a command that prints one.
  void json(const Json::Value& document) const;
  /// A document in one line; for a command that prints one after the other.
  void jsonLine(const Json::Value& document) const;

  /// What is going on ("Looking for a robot ..."), for people; nothing with --quiet.
  void note(std::string_view text) const;
  /// "robotctl: <text>", whatever the options.
  void warning(std::string_view text) const;
  /// Failure and hint; with --json one JSON object in one line.
  void failure(const Failure& failure) const;
  /// A line of the library's log. From any thread.
  static void log(std::string_view text);

  /// Standard output is a terminal.
  [[nodiscard]] static bool isTerminal();

 private:
  const CommonOptions& options_;
  const Interrupts& interrupts_;
};

}  // namespace robotctl
