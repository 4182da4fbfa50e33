#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace NFramework {

/// The number that the whole text is, in decimal digits.
template <class Number>
[[nodiscard]] std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stopped, fault] = std::from_chars(text.data(), end, number);
  if (text.empty() || fault != std::errc{} || stopped != end) return std::nullopt;
  return number;
}

inline constexpr const char* kBadPort = "the port is no number from 0 to 65535";

/// A part of a text as the C functions take it.
template <std::size_t Size>
class Terminated {
 public:
  explicit Terminated(std::string_view text) {
    fits_ = text.size() < Size && text.find('\0') == std::string_view::npos;
    if (fits_) text.copy(text_, text.size());
  }
  /// False when the text is too long, or has a NUL of its own; then it is empty here.
  [[nodiscard]] bool fits() const { return fits_; }
  [[nodiscard]] const char* get() const { return text_; }

 private:
  char text_[Size] = {};
  bool fits_ = false;
};

}  // namespace NFramework
