#pragma once

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::test {

/// A log record taken apart at its "[unit:line]".
struct LogRecord {
  std::string unit;
  std::string text;  ///< what follows the bracket, with its line end
};

/// Empty when the record doesn't begin with a unit of letters, a colon and a line number in
/// brackets.
inline std::optional<LogRecord> splitLogRecord(std::string_view record) {
  const std::size_t colon = record.find(':');
  const std::size_t bracket = record.find(']');
  if (record.substr(0, 1) != "[" || bracket == std::string_view::npos || colon >= bracket) {
    return std::nullopt;
  }
  const std::string_view unit = record.substr(1, colon - 1);
  const std::string_view line = record.substr(colon + 1, bracket - colon - 1);
  const auto allOf = [](std::string_view text, int (*is)(int)) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [is](char c) {
      return is(static_cast<unsigned char>(c)) != 0;
    });
  };
  if (!allOf(unit, std::isalpha) || !allOf(line, std::isdigit)) return std::nullopt;
  return LogRecord{std::string(unit), std::string(record.substr(bracket + 1))};
}

}  // namespace orvane::test
