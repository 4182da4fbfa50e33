#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace robotctl {

/// A key of a terminal: its character, or one of the numbers below.
using Key = char32_t;

inline constexpr Key kKeyEscape = 0x1b;
inline constexpr Key kKeyEndOfInput = 0x04;  ///< Ctrl-D
inline constexpr Key kKeyRedraw = 0x0c;      ///< Ctrl-L
// Above what Unicode has.
inline constexpr Key kKeyUp = 0x110000;
inline constexpr Key kKeyDown = 0x110001;
inline constexpr Key kKeyRight = 0x110002;
inline constexpr Key kKeyLeft = 0x110003;
inline constexpr Key kKeyOther = 0x110004;  ///< one that has no name here

/// Turns a terminal's bytes into keys.
///
/// The Escape key sends the byte that function keys begin with. It counts as itself when what comes
/// behind it is no such sequence, at once, or when nothing comes for kEscapeMs. Where Escape means
/// emergency stop, a doubtful case must stop: Alt with a letter is Escape and then the letter.
class KeyDecoder {
 public:
  static constexpr std::uint64_t kEscapeMs = 50;

  /// The keys that are complete with these bytes. They arrived at `nowMs`.
  [[nodiscard]] std::vector<Key> feed(std::string_view bytes, std::uint64_t nowMs);
  /// The keys that the passing of time completes.
  [[nodiscard]] std::vector<Key> expire(std::uint64_t nowMs);
  /// When `expire` will have something; 0: nothing is pending.
  [[nodiscard]] std::uint64_t deadlineMs() const {
    return pending_.empty() ? 0 : lastMs_ + kEscapeMs;
  }

 private:
  std::string pending_;  // the beginning of a key
  std::uint64_t lastMs_ = 0;
};

}  // namespace robotctl
