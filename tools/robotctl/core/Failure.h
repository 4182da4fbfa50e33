#pragma once

#include <json/json.h>

#include <exception>
#include <stdexcept>
#include <string>

#include "core/ExitCode.h"

namespace robotctl {

/// Something that the user must be told. `what()` says what was refused or failed, by whom and why,
/// as the middle of "robotctl: <what()>": no capital letter, no full stop, no line end. `hint()`
/// says what would help ("" when nothing is known). main() prints both to standard error, with
/// --json as one JSON object, and ends with the code.
class Failure : public std::runtime_error {
 public:
  explicit Failure(ExitCode code, const std::string& text, std::string hint = {});

  [[nodiscard]] ExitCode code() const { return code_; }
  [[nodiscard]] const std::string& hint() const { return hint_; }
  /// More for --json: an object whose members stand beside "message", "hint" and "exitCode"
  /// ("errorCode", "errno", "holder", ...). Null unless set.
  [[nodiscard]] const Json::Value& details() const { return details_; }
  Failure&& with(Json::Value details) &&;

 private:
  ExitCode code_;
  std::string hint_;
  Json::Value details_;
};

/// A signal asked this program to end. Not a std::exception: a catch for failures must not take
/// it. Destructors on its way stop the robot and give control back; main() ends with 128 + signal.
struct Interrupted {
  int signal;
};

/// Nobody reads standard output any more. On its way like Interrupted; main() ends with 141 and
/// prints nothing.
struct OutputClosed {};

}  // namespace robotctl
