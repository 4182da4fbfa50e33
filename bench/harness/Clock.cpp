#include "harness/Clock.h"

#include <cerrno>
#include <ctime>

namespace bench {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

}  // namespace

std::int64_t nowNs() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

void sleepUntilNs(std::int64_t deadlineNs) noexcept {
  const timespec deadline{deadlineNs / kNsPerSecond, deadlineNs % kNsPerSecond};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

}  // namespace bench
