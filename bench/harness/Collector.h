#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "pbase/CSemaphore.h"

namespace bench {

/// Gathers the latencies of samples on the thread that receives them, without an allocation.
///
/// Threading: one thread puts; another begins, waits and looks at the result. beginning while
/// samples come in is fine: those before it are left out.
class Collector {
 public:
  explicit Collector(std::size_t room) : values_(room) {}

  /// Leaves out the first `skip` samples and keeps the `count` after them.
  void begin(std::uint32_t skip, std::uint32_t count);
  /// False when they didn't all come in time.
  bool await(std::uint32_t timeoutMs);
  /// Gathers no more. The values since begin.
  [[nodiscard]] std::vector<std::int64_t> end();
  /// Allocations of the putting thread per sample, the first one left out; of use with the counting
  /// library preloaded.
  [[nodiscard]] double threadAllocations() const;

  void put(std::int64_t latencyNs) noexcept;

 private:
  std::vector<std::int64_t> values_;
  Pexal::PBase::CSemaphore full_{0};
  std::atomic<std::int64_t> next_{kIdle};  // below 0: to be left out
  std::atomic<std::int64_t> wanted_{0};
  std::uint64_t allocationsAtFirst_ = 0;
  std::uint64_t allocationsAtLast_ = 0;

  static constexpr std::int64_t kIdle = INT64_MIN;
};

}  // namespace bench
