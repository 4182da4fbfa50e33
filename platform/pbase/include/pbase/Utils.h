#pragma once

#include <json/value.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "pbase/Export.h"

namespace Pexal::Utils {

/// Bounds of every JSON text that is parsed; checked before the parser runs.
inline constexpr std::size_t kMaxJsonBytes = 4U << 20;
inline constexpr unsigned kMaxJsonDepth = 64;

/// Parses one JSON value (any kind; no comments, nothing behind it). False, with `out` unchanged,
/// when the text is not JSON, larger than kMaxJsonBytes or nested deeper than kMaxJsonDepth, when
/// an object has two members of one name, or a number is too large for a double. Never throws.
[[nodiscard]] PEXAL_API bool stringToJson(std::string_view text, Json::Value& out) noexcept;

/// Prints `value` as JSON text without a line end: compact (no white space) or, with `compact`
/// false, indented by two blanks. Members come in the order of their names. The text is ASCII:
/// other characters are escaped, and bytes that aren't UTF-8 become U+FFFD. Reals come back exactly
/// as they were and stay reals ("1.0"); those that JSON has no form for (NaN, infinities) are
/// printed as null.
[[nodiscard]] PEXAL_API std::string jsonToString(const Json::Value& value, bool compact = true);

/// A random UUID as 36 lower-case characters / as 16 bytes.
[[nodiscard]] PEXAL_API std::string createRandomUUID();
[[nodiscard]] PEXAL_API std::array<std::uint8_t, 16> createRandomUUIDBytes();

}  // namespace Pexal::Utils
