#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace robotctl {

/// printf into a string.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

/// `text` without what a terminal would obey: control characters, and bytes that are no UTF-8,
/// become '?'. For everything that came over the network and goes to a terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// `text` as UTF-8: bytes that are none become '?'. Control characters stay.
[[nodiscard]] std::string asUtf8(std::string_view text);

/// The beginning of `text`, `mostBytes` at most, that ends with a whole character of UTF-8.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t mostBytes);

/// Rows as lines with aligned columns, two blanks between them; the first row is the heading.
/// Widths count characters of UTF-8.
[[nodiscard]] std::string table(const std::vector<std::vector<std::string>>& rows);

/// "+0.35", "-1.20"; a value that rounds to zero is "+0.00".
[[nodiscard]] std::string signedNumber(double value, int decimals);

/// "850 ms", "12 s", "3 min 20 s", "2 h 5 min".
[[nodiscard]] std::string duration(std::uint64_t milliseconds);

}  // namespace robotctl
