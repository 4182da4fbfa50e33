#include "gamepad/PadScript.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

namespace orvane::robot {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kLongestQuote = 32;

/// Takes the next word off `line`; empty when there is none.
std::string_view takeWord(std::string_view& line) {
  const std::size_t begin = std::min(line.find_first_not_of(kBlanks), line.size());
  line.remove_prefix(begin);
  const std::size_t length = std::min(line.find_first_of(kBlanks), line.size());
  const std::string_view word = line.substr(0, length);
  line.remove_prefix(length);
  return word;
}

template <class Number>
std::optional<Number> numberOf(std::string_view word) {
  Number number{};
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return number;
}

/// A word of the script in a message: short, and nothing in it may steer a terminal.
std::string quoted(std::string_view word) {
  std::string text = "\"";
  for (const char c : word.substr(0, kLongestQuote)) {
    text += std::isprint(static_cast<unsigned char>(c)) != 0 ? c : '?';
  }
  return text + '"';
}

template <class Table>
std::optional<std::size_t> find(const Table& table, std::string_view name) {
  const auto row =
      std::find_if(table.begin(), table.end(), [&](const auto& it) { return it.name == name; });
  if (row == table.end()) return std::nullopt;
  return static_cast<std::size_t>(row - table.begin());
}

}  // namespace

std::variant<PadScript, std::string> PadScript::parse(std::string_view text) {
  if (text.size() > kLongestText) return "longer than " + std::to_string(kLongestText) + " bytes";
  PadScript script;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, length);
    line = line.substr(0, line.find('#'));
    std::string wrong = script.addLine(line);
    if (!wrong.empty()) return "line " + std::to_string(number) + ": " + wrong;
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return script;
}

std::string PadScript::addLine(std::string_view line) {
  const std::string_view time = takeWord(line);
  if (time.empty()) return {};
  if (close_ != Close::kStay) return "nothing comes after repeat or end";
  const auto ms = numberOf<std::uint32_t>(time);
  if (!ms || *ms > kLatestMs) return quoted(time) + " is no time, 0 to 86400000 ms";
  if (*ms < lastMs_) return "its time lies before the line's above";
  lastMs_ = *ms;
  std::string_view name = takeWord(line);
  if (name.empty()) return "the form is: MS NAME VALUE ..., MS repeat or MS end";
  for (; !name.empty(); name = takeWord(line)) {
    const std::string_view value = takeWord(line);
    if (name == "repeat" || name == "end") {
      if (!value.empty()) return "nothing comes after " + std::string(name);
      if (name == "repeat" && *ms == 0) return "it can't repeat in no time";
      close_ = name == "repeat" ? Close::kRepeat : Close::kEnd;
      closeMs_ = *ms;
      return {};
    }
    std::string wrong = addChange(*ms, name, value);
    if (!wrong.empty()) return wrong;
  }
  return {};
}

std::string PadScript::addChange(std::uint32_t ms, std::string_view name, std::string_view value) {
  const auto button = find(kPadButtons, name);
  const auto axis = find(kPadAxes, name);
  if (!button && !axis) return "there is no button, stick or trigger " + quoted(name);
  const auto number = numberOf<float>(value);
  if (button) {
    if (number != 0.0F && number != 1.0F) return std::string(name) + " must be 0 or 1";
  } else if (!number || !(*number >= kPadAxes[*axis].lower && *number <= 1)) {
    return std::string(name) + " must be " + (kPadAxes[*axis].lower < 0 ? "-1" : "0") + " to 1";
  }
  const std::size_t index = button ? *button : kPadButtons.size() + *axis;
  changes_.push_back({ms, static_cast<std::uint32_t>(index), *number});
  return {};
}

bool PadScript::at(std::uint64_t ms, PadState& state) {
  if (close_ == Close::kEnd && ms >= closeMs_) return false;
  if (close_ == Close::kRepeat && ms - roundMs_ >= closeMs_) {
    roundMs_ = ms - ms % closeMs_;
    next_ = 0;
    state_ = {};
  }
  for (; next_ < changes_.size() && changes_[next_].ms <= ms - roundMs_; ++next_) {
    const Change& change = changes_[next_];
    if (change.index < kPadButtons.size()) {
      state_.*kPadButtons[change.index].member = static_cast<std::uint8_t>(change.value);
    } else {
      state_.*kPadAxes[change.index - kPadButtons.size()].member = change.value;
    }
  }
  state = state_;
  return true;
}

}  // namespace orvane::robot
