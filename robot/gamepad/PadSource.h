#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "gamepad/PadState.h"

namespace orvane::robot {

/// Where a game pad's state comes from. Not thread-safe.
class PadSource {
 public:
  virtual ~PadSource() = default;
  PadSource(const PadSource&) = delete;
  PadSource& operator=(const PadSource&) = delete;

  /// What the pad is at now, at `nowMs` of the platform's clock, which doesn't fall. False: there
  /// is no pad at present. Doesn't wait; bounded, whatever the other side writes.
  [[nodiscard]] virtual bool poll(std::uint64_t nowMs, PadState& state) = 0;

 protected:
  PadSource() = default;
};

/// The source at `path`: a regular file is a PadScript that begins with the first poll, a character
/// device or a FIFO gives joystick events. What isn't there yet is looked for until it comes and
/// taken for a device, and so is a device that goes away. Null: `error` says why. May read a file,
/// otherwise doesn't wait.
[[nodiscard]] std::unique_ptr<PadSource> openPadSource(const std::string& path, std::string& error);

}  // namespace orvane::robot
