#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "MonotonicCondition.h"
#include "pbase/CMutex.h"

namespace Pexal::PBase {

/// Deadlines from here on never come: simulated time doesn't jump to them.
inline constexpr std::uint64_t kNeverUs = std::numeric_limits<std::uint64_t>::max() / 2;

inline std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) noexcept {
  return a > std::numeric_limits<std::uint64_t>::max() - b
             ? std::numeric_limits<std::uint64_t>::max()
             : a + b;
}

/// CLOCK_MONOTONIC in microseconds, whatever clock is installed.
std::uint64_t systemMicroseconds() noexcept;

/// A thread during whose running simulated time stands still. Owned by the thread's own frame (or
/// by VirtualTime, for the clock's maker); its fields are guarded by VirtualTime's mutex.
struct Participant {
  std::string name;
  std::uint64_t number = 0;  ///< in order of creation; settles ties
  bool member = false;       ///< of the clock that is installed now
  bool maker = false;
  bool blocked = false;          ///< in a wait of pbase
  unsigned outside = 0;          ///< ExternalWaits entered
  std::uint64_t deadlineUs = 0;  ///< of that wait
};

/// The machinery behind VirtualClock: who takes part, who waits for what, and the jump of time.
///
/// Threading contract: any thread, any time. Lock order: the mutex that a caller of Wait::block
/// holds, then mutex_; nothing is locked, called back or logged under mutex_. Never destroyed, so
/// that threads which outlive main() may still end.
class VirtualTime {
 public:
  static VirtualTime& instance() noexcept;

  /// Simulated microseconds; 0 while no clock is installed. Never blocks.
  static std::uint64_t now() noexcept { return now_.load(std::memory_order_acquire); }
  static bool active() noexcept { return now() != 0; }
  /// What to add to CLOCK_MONOTONIC for the platform's time: above 0 only after a clock was removed
  /// while threads still went by it.
  static std::int64_t offset() noexcept { return offset_.load(std::memory_order_acquire); }

  /// Makes the calling thread the maker. Throws std::logic_error when a clock is installed.
  void install(std::uint64_t startUs, std::uint32_t watchdogMs);
  void remove() noexcept;

  /// Lets a thread take part, from now on, counted as running (nothing without a clock). Called by
  /// its creator, so that time can't pass before it runs.
  void enter(Participant& participant);
  /// Ends that. Nothing when it doesn't take part.
  void leave(Participant& participant) noexcept;
  /// Says which participant the calling thread is.
  static void adopt(Participant* participant) noexcept;

  void notify(const void* condition, bool all) noexcept;

  /// The calling thread waits outside pbase from now on / runs again.
  void beginOutside() noexcept;
  void endOutside() noexcept;

 private:
  friend class Wait;
  struct Waiter;

  VirtualTime() = default;
  void jumpWhenIdle() noexcept;
  void wake(Waiter& waiter) noexcept;
  void awaitTurn(Waiter& waiter) noexcept;
  [[noreturn]] void reportFreeze() noexcept;

  static std::atomic<std::uint64_t> now_;  // written under mutex_
  static std::atomic<std::int64_t> offset_;

  std::mutex mutex_;  // guards everything below
  std::uint64_t generation_ = 0;
  std::uint32_t watchdogMs_ = 0;
  int running_ = 0;            // threads that hold time still
  std::uint64_t step_ = 0;     // jumps made
  std::uint64_t waits_ = 0;    // waits begun
  std::uint64_t members_ = 0;  // participants numbered
  Participant maker_;
  std::vector<Participant*> participants_;
  std::vector<Waiter*> waiters_;
};

/// One wait of a thread, made of any number of blocks. A woken thread that takes no part in the
/// clock holds time still until its wait is over, so that it sees the time it was woken at.
class Wait {
 public:
  Wait() = default;
  ~Wait();
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;

  /// Blocks in simulated time, with `lock` released, until `condition` is notified or `deadlineUs`
  /// is due. Returns at once, with false, when no clock is installed; also ends when it is removed.
  bool block(const void* condition, std::uint64_t deadlineUs, std::unique_lock<CMutex>& lock);

 private:
  std::uint64_t countedIn_ = 0;  // generation whose running_ counts this thread; 0: none
};

}  // namespace Pexal::PBase
