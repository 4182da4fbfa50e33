#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace robotctl {

/// From one thread that delivers to one that writes: a ring of records that is allocated once.
///
/// Threading: `push` by one thread at a time, `front` and `pop` by one other. No locks.
template <class Record>
class RecordQueue {
 public:
  struct Entry {
    std::uint64_t timeNs;
    Record record;
  };

  explicit RecordQueue(std::size_t capacity) : entries_(capacity) {}

  /// False when it is full; the record is lost then. Never waits.
  [[nodiscard]] bool push(std::uint64_t timeNs, const Record& record) noexcept {
    const std::uint64_t pushed = pushed_.load(std::memory_order_relaxed);
    if (pushed - popped_.load(std::memory_order_acquire) == entries_.size()) return false;
    entries_[pushed % entries_.size()] = {timeNs, record};
    pushed_.store(pushed + 1, std::memory_order_release);
    return true;
  }
  /// The oldest entry, or null.
  [[nodiscard]] const Entry* front() const noexcept {
    const std::uint64_t popped = popped_.load(std::memory_order_relaxed);
    if (popped == pushed_.load(std::memory_order_acquire)) return nullptr;
    return &entries_[popped % entries_.size()];
  }
  void pop() noexcept {
    popped_.store(popped_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }

 private:
  std::vector<Entry> entries_;
  alignas(64) std::atomic<std::uint64_t> pushed_{0};
  alignas(64) std::atomic<std::uint64_t> popped_{0};
};

}  // namespace robotctl
