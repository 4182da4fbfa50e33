#include "core/Text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace robotctl {
namespace {

/// Bytes of UTF-8 that don't begin a character.
bool continues(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::size_t width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return !continues(byte); }));
}

/// Bytes of the character that `text` begins with; 0 when it begins with none (also none of the
/// overlong ones, of the surrogates, and beyond U+10FFFF).
std::size_t characterBytes(std::string_view text) {
  const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() < size) return 0;
  for (std::size_t at = 1; at < size; ++at) {
    if (!continues(text[at])) return 0;
  }
  const bool bad = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) > 0x9F) ||
                   (lead == 0xF0 && byte(1) < 0x90) || (lead == 0xF4 && byte(1) > 0x8F);
  return bad ? 0 : size;
}

}  // namespace

std::string format(const char* pattern, ...) {
  va_list values;
  va_start(values, pattern);
  va_list again;
  va_copy(again, values);
  const int size = std::vsnprintf(nullptr, 0, pattern, values);
  va_end(values);
  std::string text(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, pattern, again);
  va_end(again);
  return text;
}

std::string printable(std::string_view text) {
  std::string clean = asUtf8(text);
  for (std::size_t i = 0; i < clean.size(); ++i) {
    const auto byte = static_cast<unsigned char>(clean[i]);
    if (byte < 0x20 || byte == 0x7F) clean[i] = '?';
    // U+0080 to U+009F: control characters, too, in two bytes.
    if (byte == 0xC2 && static_cast<unsigned char>(clean[i + 1]) < 0xA0) {
      clean[i] = clean[i + 1] = '?';
    }
  }
  return clean;
}

std::string asUtf8(std::string_view text) {
  std::string good(text);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = characterBytes(text.substr(at));
    if (size == 0) good[at] = '?';
    at += std::max<std::size_t>(size, 1);
  }
  return good;
}

std::string shortened(std::string_view text, std::size_t mostBytes) {
  if (text.size() <= mostBytes) return std::string(text);
  std::size_t end = mostBytes;
  while (end > 0 && continues(text[end])) --end;
  return std::string(text.substr(0, end));
}

std::string table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      text += row[i];
      if (i + 1 < row.size()) text.append(widths[i] - width(row[i]) + 2, ' ');
    }
    text += '\n';
  }
  return text;
}

std::string signedNumber(double value, int decimals) {
  std::string text = format("%+.*f", decimals, value);
  if (text.find_first_of("123456789") == std::string::npos) text.front() = '+';
  return text;
}

std::string duration(std::uint64_t milliseconds) {
  const auto whole = static_cast<unsigned long long>(milliseconds);
  if (whole < 1000) return format("%llu ms", whole);
  const unsigned long long seconds = whole / 1000;
  if (seconds < 60) return format("%llu s", seconds);
  if (seconds < 3600) return format("%llu min %llu s", seconds / 60, seconds % 60);
  return format("%llu h %llu min", seconds / 3600, seconds / 60 % 60);
}

}  // namespace robotctl
