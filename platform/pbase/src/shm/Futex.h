#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

namespace Pexal::PBase {

/// A word of shared memory that threads of several processes sleep on.
using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == 4 && FutexWord::is_always_lock_free);

enum class FutexEnd {
  kWoken,
  kTimeOut,
  kChanged,  ///< the word was another one, or a signal came
};

/// Sleeps while the word is `expected`, for `limitMs` at most.
inline FutexEnd futexWait(FutexWord& word, std::uint32_t expected, std::uint32_t limitMs) noexcept {
  timespec limit{};
  limit.tv_sec = static_cast<std::time_t>(limitMs / 1000);
  limit.tv_nsec = static_cast<long>(limitMs % 1000) * 1'000'000;
  if (::syscall(SYS_futex, &word, FUTEX_WAIT, expected, &limit, nullptr, 0) == 0) {
    return FutexEnd::kWoken;
  }
  return errno == ETIMEDOUT ? FutexEnd::kTimeOut : FutexEnd::kChanged;
}

inline void futexWake(FutexWord& word) noexcept {
  const int kept = errno;
  ::syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  errno = kept;
}

}  // namespace Pexal::PBase
