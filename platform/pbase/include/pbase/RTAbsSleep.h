#pragma once

#include <cstdint>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// The pauses of a thread that looks again and again for something another thread or process is
/// about to do, without a way to be woken. Make one object per wait, and call manualBackoff after
/// each look that found nothing:
///
///     RTAbsSleep pause;
///     while (!arrived()) pause.manualBackoff(100'000);
///
/// The first calls of a wait spin, together for 50 microseconds, so that a short wait ends within a
/// microsecond of its event. Later ones sleep, 25 microseconds at first and twice as long each time
/// up to the limit, so that a long wait costs next to nothing. (The system adds to every sleep what
/// the thread's timer slack allows, by default 50 microseconds.) Under a VirtualClock every call
/// sleeps the limit in simulated time.
///
/// Who would rather give up than sleep calls spin instead, for as long as it returns true.
///
/// Used by one thread; different objects are independent. Takes no mutex and doesn't allocate.
class PEXAL_API RTAbsSleep {
 public:
  /// Spins or sleeps, see above. `longestNs`: the longest single sleep, in nanoseconds (100000 =
  /// 0.1 ms); 0: never sleeps. A signal may end a sleep early.
  void manualBackoff(std::uint32_t longestNs) noexcept;
  /// Spins a little. False, at once, when the 50 microseconds since the first call are over, and
  /// under a VirtualClock.
  [[nodiscard]] bool spin() noexcept;

 private:
  std::uint64_t begunNs_ = 0;  // the first call; 0: none yet
  std::uint32_t sleepNs_ = 0;  // the last sleep
};

}  // namespace Pexal::PBase
