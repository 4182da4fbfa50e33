#include "pbase/RTAbsSleep.h"

#include <algorithm>
#include <ctime>

#include "Sleep.h"

namespace Pexal::PBase {
namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kSpinNs = 50'000;
constexpr std::uint32_t kFirstSleepNs = 25'000;
constexpr int kPausesPerCall = 8;

std::uint64_t nowNs() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

/// Tells the processor that this is a spin: a sibling thread gets on, and it draws less power.
void relax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
  asm volatile("yield");
#endif
}

void sleepUntil(std::uint64_t ns) noexcept {
  timespec deadline{};
  deadline.tv_sec = static_cast<std::time_t>(ns / kNsPerSecond);
  deadline.tv_nsec = static_cast<long>(ns % kNsPerSecond);
  ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
}

/// At least a microsecond: simulated time stands still for who doesn't wait.
void sleepSimulated(std::uint32_t ns) {
  CMutex mutex;
  CCondition never;
  sleepUnless(mutex, never, std::max<std::uint32_t>(ns / 1000, 1), [] { return false; });
}

}  // namespace

void RTAbsSleep::manualBackoff(std::uint32_t longestNs) noexcept {
  if (VirtualTime::active()) return sleepSimulated(longestNs);
  if (spin()) return;
  sleepNs_ = std::min(longestNs, sleepNs_ == 0 ? kFirstSleepNs : sleepNs_ * 2);
  if (sleepNs_ > 0) sleepUntil(nowNs() + sleepNs_);
}

bool RTAbsSleep::spin() noexcept {
  if (VirtualTime::active()) return false;
  const std::uint64_t now = nowNs();
  if (begunNs_ == 0) begunNs_ = now;
  if (now - begunNs_ >= kSpinNs) return false;
  for (int i = 0; i < kPausesPerCall; ++i) relax();
  return true;
}

}  // namespace Pexal::PBase
