#pragma once

#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <mutex>

namespace Pexal::PBase {

/// A condition variable on CLOCK_MONOTONIC. Wakes may be spurious.
class MonotonicCondition {
 public:
  MonotonicCondition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&native_, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~MonotonicCondition() { pthread_cond_destroy(&native_); }
  MonotonicCondition(const MonotonicCondition&) = delete;
  MonotonicCondition& operator=(const MonotonicCondition&) = delete;

  /// Waits with `mutex` (held) released, until woken.
  void wait(std::mutex& mutex) noexcept { pthread_cond_wait(&native_, mutex.native_handle()); }
  /// The same, at most until CLOCK_MONOTONIC reads `deadlineUs` microseconds.
  void waitUntil(std::mutex& mutex, std::uint64_t deadlineUs) noexcept {
    constexpr std::uint64_t kUsPerSecond = 1'000'000;
    constexpr std::uint64_t kFarUs =
        100ULL * 366 * 86400 * kUsPerSecond;  // later overflows kernels
    const std::uint64_t boundedUs = std::min(deadlineUs, kFarUs);
    timespec deadline{};
    deadline.tv_sec = static_cast<std::time_t>(boundedUs / kUsPerSecond);
    deadline.tv_nsec = static_cast<long>(boundedUs % kUsPerSecond * 1000);
    pthread_cond_timedwait(&native_, mutex.native_handle(), &deadline);
  }
  void notifyOne() noexcept { pthread_cond_signal(&native_); }
  void notifyAll() noexcept { pthread_cond_broadcast(&native_); }

 private:
  pthread_cond_t native_;
};

}  // namespace Pexal::PBase
