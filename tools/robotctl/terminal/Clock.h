#pragma once

#include <chrono>
#include <cstdint>

namespace robotctl {

/// Milliseconds of a clock that never jumps, since an arbitrary origin; never 0.
inline std::uint64_t monotonicMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return 1 + static_cast<std::uint64_t>(
                 std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace robotctl
