#pragma once

#include <linux/joystick.h>

#include <array>
#include <cstddef>
#include <span>

#include "gamepad/PadState.h"

namespace orvane::robot {

/// Makes a pad's state of the events of a Linux joystick device (js_event of <linux/joystick.h>),
/// in the order of buttons and axes that the kernel's driver for common game pads has. Buttons and
/// axes beyond, and kinds of events that it doesn't know, are passed over.
///
/// Not thread-safe. Doesn't allocate.
class JoystickDecoder {
 public:
  /// The next bytes of the device, cut anywhere.
  void feed(std::span<const std::byte> bytes);
  /// Begins anew: the pad isn't touched, half an event is forgotten.
  void reset() { *this = {}; }

  [[nodiscard]] const PadState& state() const { return state_; }

 private:
  void apply(const js_event& event);
  void moveAxis(std::size_t number, int value);

  PadState state_{};
  std::array<std::byte, sizeof(js_event)> event_{};
  std::size_t filled_ = 0;
};

}  // namespace orvane::robot
