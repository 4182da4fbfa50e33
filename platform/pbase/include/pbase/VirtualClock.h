#pragma once

#include <cstdint>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// Replaces the platform's clock by simulated time while it lives, for tests that cover minutes in
/// milliseconds and always in the same order.
///
/// Time stands still while any participating thread runs. Participants are the thread that made the
/// clock and every CThread started meanwhile. When all of them are blocked in a wait of pbase
/// (CThread::sleep, CSemaphore::wait, CCondition::waitUntil), time jumps to the earliest deadline and
/// that one waiter runs until it blocks again. Among equal deadlines the earlier wait goes first and
/// the clock's maker last. So `clock.advance(3000)` on the test's thread lets everything that is due
/// within 3 s happen, in order, and returns when all of it is done.
///
/// Make it before the threads and objects under test, on the test's thread; at most one at a time.
class PEXAL_API VirtualClock {
 public:
  /// Far above zero: at zero a time stamp of 0 ("never") would read as fresh.
  static constexpr std::uint64_t kDefaultStartUs = 1'000'000'000'000;

  explicit VirtualClock(std::uint64_t startUs = kDefaultStartUs);
  ~VirtualClock();
  VirtualClock(const VirtualClock&) = delete;
  VirtualClock& operator=(const VirtualClock&) = delete;

  /// Lets `ms` milliseconds pass (the same as CThread::sleep on the maker's thread).
  void advance(std::uint32_t ms);
  /// The same in microseconds.
  void advanceMicroseconds(std::uint64_t us);
};

}  // namespace Pexal::PBase
