#include <algorithm>
#include <string>

#include "core/Completion.h"

namespace robotctl {
namespace {

constexpr const char* kBegin = R"(.SH NAME
robotctl \- find robots, look at them and drive them
.SH SYNOPSIS
.B robotctl
.RI [ option .\|.\|.]
.I subcommand
.RI [ argument .\|.\|.]
.SH DESCRIPTION
.B robotctl
speaks to four-legged robots through the robotMotionSdk library: on a network, or on a robot's own board.
Commands that move a robot take control of it first, which takes about three seconds, wait until it has done
what was asked for, and give control back.
Ctrl-C stops a walk, gives control back and ends with status 130.
.PP
Without
.B \-\-robot
the one robot that answers is meant; where several answer they are listed, and nothing happens.
Data goes to standard output, everything else to standard error.
)";

constexpr const char* kEnd = R"(.SH EXIT STATUS
.TP
.B 0
done
.TP
.B 1
the robot refused, or a request failed
.TP
.B 2
wrong command line
.TP
.B 3
no robot found, or several and none was named
.TP
.B 4
control of the robot wasn't obtained, or was lost
.TP
.B 5
the robot didn't answer in time
.TP
.B 6
this machine isn't set up: the library can't start, a file can't be written
.TP
.BR 129 ", " 130 ", " 143
ended by SIGHUP, SIGINT (Ctrl-C), SIGTERM; the robot was stopped and control given back
.TP
.B 141
nobody reads standard output any more
.SH ENVIRONMENT
.TP
.BR ROBOTCTL_ROBOT ", " ROBOTCTL_INTERFACE
stand in for
.B \-\-robot
and
.BR \-\-interface ,
which come before them.
.SH EXAMPLES
.EX
robotctl \-\-interface lo discover
robotctl \-\-interface lo stand
robotctl \-\-interface lo walk 0.3 0 \-0.2 \-\-for 5
robotctl \-\-json status | jq .motion.posture
.EE
.SH SEE ALSO
.BR virtual\-robot (1)
)";

std::string escaped(const std::string& text) {
  std::string clean;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool lineBegin = i == 0 || text[i - 1] == '\n';
    if (lineBegin && (text[i] == '.' || text[i] == '\'')) clean += "\\&";
    if (text[i] == '\\') {
      clean += "\\e";
    } else if (text[i] == '-') {
      clean += "\\-";
    } else {
      clean += text[i];
    }
  }
  return clean;
}

/// Without the check's bounds, which the description tells; with the words of a choice.
std::string typeOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::size_t colon = type.find(':');
  if (colon == std::string::npos) return type;
  return type[colon + 1] == '{' ? type.substr(colon + 1) : type.substr(0, colon);
}

/// "\fB\-\-timeout\fR \fISECONDS\fR"
std::string heading(const CLI::Option& option) {
  std::string text;
  const auto add = [&](const std::string& name) {
    text += (text.empty() ? "" : ", ") + ("\\fB" + escaped(name) + "\\fR");
  };
  for (const std::string& name : option.get_snames()) add("-" + name);
  for (const std::string& name : option.get_lnames()) add("--" + name);
  if (!option.nonpositional()) return "\\fI" + escaped(option.get_name(true)) + "\\fR";
  if (option.get_items_expected_max() > 0) {
    text += " \\fI" + escaped(typeOf(option)) + "\\fR";
  }
  return text;
}

std::string describe(const CLI::Option& option) {
  std::string text = ".TP\n" + heading(option) + "\n" + escaped(option.get_description());
  if (!option.get_default_str().empty()) {
    text += " (" + escaped(option.get_default_str()) + " unless given)";
  }
  return text + "\n";
}

std::string optionsOf(const CLI::App& app) {
  std::string text;
  for (const CLI::Option* option : app.get_options()) {
    const bool own = app.get_parent() == nullptr || !option->check_lname("help");
    if (own && !option->get_group().empty()) text += describe(*option);
  }
  return text;
}

std::string synopsis(const CLI::App& app) {
  std::string text;
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_positional()) continue;
    const bool many = option->get_items_expected_max() > 1;
    const std::string name =
        "\\fI" + escaped(option->get_name(true)) + "\\fR" + (many ? "..." : "");
    text += " " + (option->get_required() ? name : "[" + name + "]");
  }
  return text;
}

std::string subcommandsOf(const CLI::App& app, const std::string& path) {
  std::string text;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (sub->get_group().empty()) continue;
    const std::string name = path + escaped(sub->get_name());
    const std::string below = subcommandsOf(*sub, name + " ");
    if (!below.empty()) {
      text += below;
      continue;
    }
    text += ".SS \"" + name + synopsis(*sub) + "\"\n" + escaped(sub->get_description()) + "\n";
    text += optionsOf(*sub);
    if (const std::string footer = sub->get_footer(); footer.size() > 1) {
      text += ".PP\n.nf\n" + escaped(footer) + "\n.fi\n";
    }
  }
  return text;
}

}  // namespace

std::string manualPage(const CLI::App& app) {
  return ".TH ROBOTCTL 1 \"\" \"robotMotionSdk " ROBOTCTL_VERSION "\"\n" + std::string(kBegin) +
         ".SH OPTIONS\nMay stand before or after the subcommand.\n" + optionsOf(app) +
         ".SH SUBCOMMANDS\n" + subcommandsOf(app, "") + kEnd;
}

}  // namespace robotctl
