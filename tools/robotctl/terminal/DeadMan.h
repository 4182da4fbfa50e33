#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "terminal/Keys.h"

namespace robotctl {

/// Forward and left in m/s, turn in rad/s counter-clockwise seen from above.
struct Velocity {
  float forward = 0;
  float left = 0;
  float turn = 0;

  bool operator==(const Velocity&) const = default;
};

/// What the robot can do at most; forward and backward differ.
struct SpeedLimits {
  struct Range {
    float least, most;
  };
  Range forward{-0.4F, 0.5F};  ///< m/s
  Range left{-0.2F, 0.2F};     ///< m/s
  Range turn{-0.8F, 0.8F};     ///< rad/s
};

/// Keys that walk the robot as long as they are held.
///
/// A terminal tells of no release: a key that is held repeats, at first after 250 to 500 ms, then
/// every 30 ms or so. So a key counts as held for kHoldMs after each time it comes. That is longer
/// than the first gap, so a held key walks without a break; a key that is hit once walks for
/// kHoldMs; and whatever stops the repeats, the keyboard, the line, the window or the person, stops
/// the robot.
///
/// Each direction has a time of its own: a terminal repeats only the key that was pressed last, so
/// the one that was held before runs out kHoldMs later.
class DeadMan {
 public:
  static constexpr std::uint64_t kHoldMs = 600;
  static constexpr int kFastest = 10;

  explicit DeadMan(SpeedLimits limits) : limits_(limits) {}

  /// True when `key` is one that walks.
  bool press(Key key, std::uint64_t nowMs);
  /// As if every key had been let go.
  void letGo();
  [[nodiscard]] Velocity wanted(std::uint64_t nowMs) const;
  /// When `wanted` changes next without a key; 0: it doesn't.
  [[nodiscard]] std::uint64_t deadlineMs(std::uint64_t nowMs) const;

  /// In tenths of what the robot can do, 1 to kFastest.
  [[nodiscard]] int speed() const { return speed_; }
  void faster() { speed_ += speed_ < kFastest ? 1 : 0; }
  void slower() { speed_ -= speed_ > 1 ? 1 : 0; }
  [[nodiscard]] const SpeedLimits& limits() const { return limits_; }

 private:
  struct Axis {
    int direction = 0;  // 1 or -1
    std::uint64_t untilMs = 0;
  };
  [[nodiscard]] float along(const Axis& axis, SpeedLimits::Range range, std::uint64_t nowMs) const;

  SpeedLimits limits_;
  int speed_ = 4;
  std::array<Axis, 3> axes_;  // forward, left, turn
};

}  // namespace robotctl
