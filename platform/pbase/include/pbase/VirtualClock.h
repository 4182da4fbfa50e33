#pragma once

#include <cstdint>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// Replaces the platform's clock by simulated time while it lives, for tests that cover minutes in
/// milliseconds and always in the same order.
///
/// Time stands still while any participating thread runs. Participants are the thread that made the
/// clock and every CThread started meanwhile. When all of them are blocked in a wait of pbase
/// (CThread::sleep, CSemaphore::wait, CCondition::waitUntil), time jumps to the earliest deadline
/// and that one waiter runs until it blocks again. Among equal deadlines the wait that began before
/// an earlier jump goes first, waits that began side by side go in the order in which their threads
/// were started, and the clock's maker goes last. So `clock.advance(3000)` on the test's thread
/// lets everything that is due within 3 s happen, in order, and returns when all of it is done, and
/// `clock.advance(0)` returns when every other thread has done what it has to do now.
///
/// A notified waiter counts as running from the notification on. A thread that ends takes part no
/// longer; one that waits for another's end (the destructor of CThread) counts as blocked. A thread
/// that waits for a mutex, or anywhere outside pbase without an ExternalWait, counts as running: a
/// participant that sleeps while it holds a mutex which another one wants stops time for good.
///
/// Other threads read this clock, notify and wait by it as well, but time doesn't stand still for
/// them: only from their being woken until their wait returns.
///
/// Make it before the threads and objects under test, on the test's thread, and destroy it there
/// after them; at most one at a time. Threads that are still there when it is destroyed go on by
/// real time (which then continues from the simulated time, so that their deadlines keep their
/// meaning); else CTime returns to CLOCK_MONOTONIC.
class PEXAL_API VirtualClock {
 public:
  /// Far above zero: at zero a time stamp of 0 ("never") would read as fresh.
  static constexpr std::uint64_t kDefaultStartUs = 1'000'000'000'000;

  /// When its maker waits and time hasn't moved for this long of real time, the process is aborted
  /// with a list of the threads and what each is doing.
  static constexpr std::uint32_t kDefaultWatchdogMs = 30'000;

  /// `startUs`: what the clock reads first, above 0. Throws std::logic_error when there is one
  /// already.
  explicit VirtualClock(std::uint64_t startUs = kDefaultStartUs,
                        std::uint32_t watchdogMs = kDefaultWatchdogMs);
  ~VirtualClock();
  VirtualClock(const VirtualClock&) = delete;
  VirtualClock& operator=(const VirtualClock&) = delete;

  /// Lets `ms` milliseconds pass (the same as CThread::sleep on the maker's thread).
  void advance(std::uint32_t ms);
  /// The same in microseconds.
  void advanceMicroseconds(std::uint64_t us);
};

}  // namespace Pexal::PBase
