#include "gamepad/JoystickDecoder.h"

#include <algorithm>
#include <cstring>

namespace orvane::robot {
namespace {

constexpr float kFullDeflection = 32767;

// By the numbers of the device.
constexpr std::array<std::uint8_t PadState::*, 12> kButtons{
    &PadState::a,    &PadState::b,     &PadState::x,  &PadState::y,  &PadState::lb, &PadState::rb,
    &PadState::back, &PadState::start, &PadState::f1, &PadState::ls, &PadState::rs, &PadState::f2};

struct Axis {
  float PadState::*member;
  enum Kind { kStick, kReversedStick, kTrigger } kind;
};
constexpr std::array<Axis, 6> kAxes{{{&PadState::stickLX, Axis::kStick},
                                     {&PadState::stickLY, Axis::kReversedStick},
                                     {&PadState::triggerL, Axis::kTrigger},
                                     {&PadState::stickRX, Axis::kStick},
                                     {&PadState::stickRY, Axis::kReversedStick},
                                     {&PadState::triggerR, Axis::kTrigger}}};

/// The direction pad is two axes whose ends are buttons.
struct Hat {
  std::uint8_t PadState::*negative;
  std::uint8_t PadState::*positive;
};
constexpr std::array<Hat, 2> kHats{
    {{&PadState::left, &PadState::right}, {&PadState::up, &PadState::down}}};

}  // namespace

void JoystickDecoder::feed(std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const std::size_t count = std::min(bytes.size(), event_.size() - filled_);
    std::copy_n(bytes.begin(), count, event_.begin() + filled_);
    filled_ += count;
    bytes = bytes.subspan(count);
    if (filled_ < event_.size()) return;
    filled_ = 0;
    js_event event{};
    std::memcpy(&event, event_.data(), sizeof(event));
    apply(event);
  }
}

void JoystickDecoder::apply(const js_event& event) {
  const unsigned kind = event.type & ~static_cast<unsigned>(JS_EVENT_INIT);
  if (kind == JS_EVENT_BUTTON && event.number < kButtons.size()) {
    state_.*kButtons[event.number] = event.value != 0 ? 1 : 0;
  } else if (kind == JS_EVENT_AXIS) {
    moveAxis(event.number, event.value);
  }
}

void JoystickDecoder::moveAxis(std::size_t number, int value) {
  if (number < kAxes.size()) {
    const Axis& axis = kAxes[number];
    const float deflection = std::max(static_cast<float>(value) / kFullDeflection, -1.0F);
    state_.*axis.member = axis.kind == Axis::kTrigger         ? (deflection + 1) / 2
                          : axis.kind == Axis::kReversedStick ? -deflection
                                                              : deflection;
  } else if (number - kAxes.size() < kHats.size()) {
    const Hat& hat = kHats[number - kAxes.size()];
    state_.*hat.negative = value < 0 ? 1 : 0;
    state_.*hat.positive = value > 0 ? 1 : 0;
  }
}

}  // namespace orvane::robot
