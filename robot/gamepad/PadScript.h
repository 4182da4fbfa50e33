#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "gamepad/PadState.h"

namespace orvane::robot {

/// What a game pad does, by the clock. A text of lines
///
///     MS NAME VALUE [NAME VALUE ...]
///
/// in the order of their times, which count from the script's begin, in ms up to a day. NAME is a
/// button (0 or 1), a stick (-1 to 1) or a trigger (0 to 1), see PadState.h; what isn't named stays
/// as it is. The last line may be "MS repeat" (above 0; the script begins anew, untouched) or "MS
/// end" (there is no pad any more); without it the pad stays as it was last. What follows a # is
/// left out, as are empty lines.
class PadScript {
 public:
  static constexpr std::size_t kLongestText = 1U << 20;  // bytes
  static constexpr std::uint32_t kLatestMs = 86'400'000;

  /// The script, or what is wrong with `text`, with the number of the line.
  [[nodiscard]] static std::variant<PadScript, std::string> parse(std::string_view text);

  /// The pad `ms` after the script's begin. False: it has come to its "end". The times of calls
  /// don't fall. Doesn't allocate.
  [[nodiscard]] bool at(std::uint64_t ms, PadState& state);

 private:
  enum class Close { kStay, kRepeat, kEnd };
  /// One value changes. Index as in kPadButtons, then as in kPadAxes.
  struct Change {
    std::uint32_t ms;
    std::uint32_t index;
    float value;
  };

  /// What is wrong with the line, empty when nothing is.
  [[nodiscard]] std::string addLine(std::string_view line);
  [[nodiscard]] std::string addChange(std::uint32_t ms, std::string_view name,
                                      std::string_view value);

  std::vector<Change> changes_;
  Close close_ = Close::kStay;
  std::uint32_t closeMs_ = 0;
  std::uint32_t lastMs_ = 0;  // of the lines read

  PadState state_{};
  std::size_t next_ = 0;       // change
  std::uint64_t roundMs_ = 0;  // when the present round began
};

}  // namespace orvane::robot
