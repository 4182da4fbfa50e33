#include "terminal/DeadMan.h"

#include <algorithm>

namespace robotctl {
namespace {

struct Binding {
  Key key;
  std::size_t axis;
  int direction;
};
constexpr std::array<Binding, 10> kBindings{{{U'w', 0, 1},
                                             {kKeyUp, 0, 1},
                                             {U's', 0, -1},
                                             {kKeyDown, 0, -1},
                                             {U'q', 1, 1},
                                             {U'e', 1, -1},
                                             {U'a', 2, 1},
                                             {kKeyLeft, 2, 1},
                                             {U'd', 2, -1},
                                             {kKeyRight, 2, -1}}};

}  // namespace

bool DeadMan::press(Key key, std::uint64_t nowMs) {
  for (const Binding& binding : kBindings) {
    if (binding.key != key) continue;
    axes_[binding.axis] = {binding.direction, nowMs + kHoldMs};
    return true;
  }
  return false;
}

void DeadMan::letGo() {
  axes_ = {};
}

Velocity DeadMan::wanted(std::uint64_t nowMs) const {
  return {along(axes_[0], limits_.forward, nowMs), along(axes_[1], limits_.left, nowMs),
          along(axes_[2], limits_.turn, nowMs)};
}

std::uint64_t DeadMan::deadlineMs(std::uint64_t nowMs) const {
  std::uint64_t next = 0;
  for (const Axis& axis : axes_) {
    if (axis.untilMs > nowMs) next = next == 0 ? axis.untilMs : std::min(next, axis.untilMs);
  }
  return next;
}

float DeadMan::along(const Axis& axis, SpeedLimits::Range range, std::uint64_t nowMs) const {
  if (nowMs >= axis.untilMs) return 0;
  const float share = static_cast<float>(speed_) / kFastest;
  return share * (axis.direction > 0 ? range.most : range.least);
}

}  // namespace robotctl
