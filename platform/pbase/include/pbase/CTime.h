#pragma once

#include <cstdint>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// The platform's clock. Monotonic: it never jumps with the wall clock and never runs backwards,
/// and it is far above zero, so that 0 can mean "never". Under a VirtualClock both readings come
/// from that clock, which starts where it is told to. Callable from any thread; never blocks, never
/// fails.
class PEXAL_API CTime {
 public:
  /// Milliseconds since an arbitrary origin (CLOCK_MONOTONIC).
  static std::uint64_t getCurrentMilliSecond() noexcept;
  /// Microseconds since the same origin.
  static std::uint64_t getCurrentMicroSecond() noexcept;
};

}  // namespace Pexal::PBase
