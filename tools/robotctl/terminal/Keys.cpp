#include "terminal/Keys.h"

#include <optional>

#include "terminal/Canvas.h"

namespace robotctl {
namespace {

constexpr std::size_t kLongestSequence = 32;

struct Taken {
  std::size_t bytes;  // 0: more are needed
  Key key;
};

Key cursorKey(char last) {
  switch (last) {
    case 'A':
      return kKeyUp;
    case 'B':
      return kKeyDown;
    case 'C':
      return kKeyRight;
    case 'D':
      return kKeyLeft;
    default:
      return kKeyOther;
  }
}

/// `bytes` begins with Escape.
Taken takeEscape(std::string_view bytes) {
  if (bytes.size() == 1) return {0, 0};
  if (bytes[1] != '[' && bytes[1] != 'O') return {1, kKeyEscape};
  const bool single = bytes[1] == 'O';
  for (std::size_t i = 2; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (byte >= 0x40 && byte <= 0x7e) return {i + 1, cursorKey(bytes[i])};
    const bool parameter = byte >= 0x20 && byte <= 0x3f;
    if (single || !parameter || i >= kLongestSequence) return {1, kKeyEscape};
  }
  return {0, 0};
}

Taken takeOne(std::string_view bytes) {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  if (lead == kKeyEscape) return takeEscape(bytes);
  if (lead < 0x80) return {1, lead};
  const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
  if (bytes.size() < length) return {0, 0};
  return {length, decoded(bytes.substr(0, length)).front()};
}

}  // namespace

std::vector<Key> KeyDecoder::feed(std::string_view bytes, std::uint64_t nowMs) {
  std::vector<Key> keys = expire(nowMs);
  pending_ += bytes;
  lastMs_ = nowMs;
  std::size_t begin = 0;
  while (begin < pending_.size()) {
    const Taken taken = takeOne(std::string_view(pending_).substr(begin));
    if (taken.bytes == 0) break;
    keys.push_back(taken.key);
    begin += taken.bytes;
  }
  pending_.erase(0, begin);
  return keys;
}

std::vector<Key> KeyDecoder::expire(std::uint64_t nowMs) {
  if (pending_.empty() || nowMs < lastMs_ + kEscapeMs) return {};
  std::vector<Key> keys;
  // What followed the Escape was typed: it counts, too.
  for (const char byte : pending_) {
    const auto value = static_cast<unsigned char>(byte);
    keys.push_back(value < 0x80 ? Key{value} : kKeyOther);
  }
  pending_.clear();
  return keys;
}

}  // namespace robotctl
