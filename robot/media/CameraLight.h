#pragma once

#include <cstdint>
#include <optional>

#include "Refusal.h"

namespace orvane::robot {

/// The light beside the camera: dark until it is set. Not thread-safe: the robot mutex guards it.
class CameraLight {
 public:
  static constexpr std::uint64_t kBrightest = 100;

  /// Refused, and nothing changes: above kBrightest.
  [[nodiscard]] std::optional<Refusal> set(std::uint64_t brightness) {
    if (brightness > kBrightest) {
      return Refusal{Reason::kOutOfRange, "brightness must lie within 0 to 100"};
    }
    brightness_ = brightness;
    return std::nullopt;
  }
  [[nodiscard]] std::uint64_t brightness() const { return brightness_; }

 private:
  std::uint64_t brightness_ = 0;
};

}  // namespace orvane::robot
