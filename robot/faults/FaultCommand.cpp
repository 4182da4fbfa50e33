#include "faults/FaultCommand.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "Refusal.h"

namespace orvane::robot {
namespace {

constexpr std::size_t kLongestText = 200;
constexpr std::size_t kLongestQuoted = 40;
constexpr std::uint32_t kLongestMs = 24 * 3600 * 1000;
constexpr std::uint32_t kMostTimes = 1'000'000;
constexpr std::uint32_t kHighestErrorNumber = 65535;
constexpr const char* kDefaultRival = "remote";
constexpr const char* kAfter = "after";
constexpr const char* kErrno = "errno";

/// What follows a verb, in order: one letter each, a capital one may be left out. m: method, d:
/// duration in ms, t: number of times, e: "errno" and a number, n: a name.
struct Form {
  const char* verb;
  Fault fault;
  const char* slots;
  const char* arguments;  // for people
};
constexpr Form kForms[] = {
    {"refuse", Fault::kRefuse, "mTE", " METHOD [TIMES] [errno NUMBER]"},
    {"delay", Fault::kDelay, "mdT", " METHOD MS [TIMES]"},
    {"drop", Fault::kDrop, "mT", " METHOD [TIMES]"},
    {"withhold", Fault::kWithhold, "mT", " METHOD [TIMES]"},
    {"preempt", Fault::kPreempt, "ND", " [NAME [LEASE_MS]]"},
    {"restore", Fault::kRestore, "", ""},
    {"revoke", Fault::kRevoke, "", ""},
    {"expire", Fault::kExpire, "", ""},
    {"endsession", Fault::kEndSession, "", ""},
    {"silent", Fault::kSilent, "D", " [MS]"},
    {"speak", Fault::kSpeak, "", ""},
    {"nonsense", Fault::kNonsense, "D", " [MS]"},
    {"sense", Fault::kSense, "", ""},
    {"die", Fault::kDie, "", ""},
    {"clear", Fault::kClear, "", ""},
    {"list", Fault::kList, "", ""},
};

std::string quoted(std::string word) {
  for (char& c : word) {
    if (std::isprint(static_cast<unsigned char>(c)) == 0) c = '?';
  }
  if (word.size() > kLongestQuoted) word = word.substr(0, kLongestQuoted) + "...";
  return '"' + word + '"';
}

/// Reads the words of one command from left to right; the first error is kept.
class Reader {
 public:
  Reader(const std::string& text, bool (*isMethod)(const std::string&)) : isMethod_(isMethod) {
    std::istringstream stream(text);
    for (std::string word; stream >> word;) words_.push_back(std::move(word));
  }

  ParsedFault read() {
    if (words_.empty()) return "an empty fault; allowed: " + verbs();
    if (words_[0] == kAfter) {
      form_ = "after MS FAULT";
      ++next_;
      number(command_.afterMs, 1, kLongestMs, "a number of milliseconds");
      if (error_.empty() && next_ == words_.size()) error_ = "a fault is missing";
      if (!error_.empty()) return failure();
    }
    const std::string verb = words_[next_++];
    const auto* const form = std::find_if(std::begin(kForms), std::end(kForms),
                                          [&](const Form& row) { return verb == row.verb; });
    if (form == std::end(kForms)) {
      if (verb != kAfter) return "no fault " + quoted(verb) + "; allowed: " + verbs();
      error_ = "after can't be repeated";
      return failure();
    }
    form_ = form->verb + std::string(form->arguments);
    command_.fault = form->fault;
    for (const char slot : std::string_view(form->slots)) fill(slot);
    if (error_.empty() && next_ < words_.size()) error_ = quoted(words_[next_]) + " is too much";
    if (!error_.empty()) return failure();
    if (form->fault == Fault::kPreempt && command_.name.empty()) command_.name = kDefaultRival;
    return command_;
  }

 private:
  static std::string verbs() {
    std::string all;
    for (const Form& form : kForms) all += std::string(form.verb) + ", ";
    return all + kAfter + " (in quotes: each fault is one argument)";
  }
  [[nodiscard]] std::string failure() const { return error_ + "; the form is: " + form_; }

  void fill(char slot) {
    const bool optional = std::isupper(static_cast<unsigned char>(slot)) != 0;
    const char kind = static_cast<char>(std::tolower(static_cast<unsigned char>(slot)));
    if (kind == 'e') command_.errorNumber = static_cast<std::uint32_t>(Reason::kNotNow);
    if (optional && (next_ == words_.size() || !error_.empty())) return;
    switch (kind) {
      case 'm':
        command_.name = word("a method");
        if (error_.empty() && command_.name != kAnyMethod && !isMethod_(command_.name)) {
          error_ = "the robot has no method " + quoted(command_.name);
        }
        return;
      case 'n':
        command_.name = word("a name");
        return;
      case 'd':
        number(command_.ms, 1, kLongestMs, "a number of milliseconds");
        return;
      case 't':
        if (words_[next_] == kErrno) return;
        number(command_.times, 1, kMostTimes, "a number of times");
        return;
      default:
        if (words_[next_] != kErrno) return;
        ++next_;
        number(command_.errorNumber, 1, kHighestErrorNumber, "an error number");
    }
  }

  std::string word(const char* what) {
    if (error_.empty() && next_ == words_.size()) error_ = std::string(what) + " is missing";
    return error_.empty() ? words_[next_++] : std::string();
  }

  void number(std::uint32_t& value, std::uint32_t lowest, std::uint32_t highest, const char* what) {
    const std::string text = word(what);
    if (!error_.empty()) return;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failed != std::errc() || end != text.data() + text.size() || value < lowest ||
        value > highest) {
      error_ = quoted(text) + " is not " + what + " from " + std::to_string(lowest) + " to " +
               std::to_string(highest);
    }
  }

  bool (*const isMethod_)(const std::string&);
  std::vector<std::string> words_;
  std::size_t next_ = 0;
  FaultCommand command_;
  std::string form_;
  std::string error_;
};

}  // namespace

ParsedFault parseFault(const std::string& text, bool (*isMethod)(const std::string& name)) {
  if (text.size() > kLongestText) {
    return quoted(text) + " is longer than " + std::to_string(kLongestText) + " bytes";
  }
  return Reader(text, isMethod).read();
}

std::string textOf(const FaultCommand& command) {
  const auto* const form = std::find_if(std::begin(kForms), std::end(kForms), [&](const Form& row) {
    return row.fault == command.fault;
  });
  std::string text = form->verb;
  if (!command.name.empty()) text += ' ' + command.name;
  if (command.ms > 0) text += ' ' + std::to_string(command.ms);
  if (command.times > 0) text += ' ' + std::to_string(command.times);
  if (command.errorNumber > 0) text += " errno " + std::to_string(command.errorNumber);
  return text;
}

std::string faultForms() {
  std::string all;
  for (const Form& form : kForms) all += std::string("  ") + form.verb + form.arguments + '\n';
  return all + "  after MS FAULT\n";
}

}  // namespace orvane::robot
