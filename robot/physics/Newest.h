#pragma once

#include <array>
#include <atomic>

namespace orvane::robot {

/// Hands the newest value of one thread to another. Neither ever waits; what isn't fetched in time
/// is replaced.
///
/// Threading contract: put on one thread, newest on one other.
template <class Value>
class Newest {
 public:
  explicit Newest(const Value& first) : slots_{first, first, first} {}

  void put(const Value& value) {
    slots_[putting_] = value;
    putting_ = handed_.exchange(putting_ | kFresh, std::memory_order_acq_rel) & ~kFresh;
  }
  [[nodiscard]] const Value& newest() {
    if ((handed_.load(std::memory_order_relaxed) & kFresh) != 0) {
      seen_ = handed_.exchange(seen_, std::memory_order_acq_rel) & ~kFresh;
    }
    return slots_[seen_];
  }

 private:
  static constexpr unsigned kFresh = 4;

  std::array<Value, 3> slots_;
  unsigned putting_ = 0;             // slot of the putting thread
  std::atomic<unsigned> handed_{1};  // slot between them, with kFresh when it wasn't seen yet
  unsigned seen_ = 2;                // slot of the other thread
};

}  // namespace orvane::robot
