#include <gtest/gtest.h>

#include <ctime>

#include "pbase/CTime.h"
#include "pbase/RTAbsSleep.h"
#include "pbase/VirtualClock.h"

namespace Pexal::PBase {
namespace {

double processorMs() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

TEST(RTAbsSleepTest, ALongWaitLeavesTheProcessorToOthersAndEachWaitSpinsAnew) {
  constexpr std::uint64_t kWaitMs = 200;
  const double usedBefore = processorMs();
  const std::uint64_t end = CTime::getCurrentMilliSecond() + kWaitMs;
  std::uint64_t calls = 0;
  for (RTAbsSleep pause; CTime::getCurrentMilliSecond() < end; ++calls)
    pause.manualBackoff(100'000);
  EXPECT_LT(processorMs() - usedBefore, kWaitMs / 4.0);
  EXPECT_LT(calls, kWaitMs * 10 + 50 * 10) << "sleeps of 0.1 ms, after a spin of 50 us";

  for (int wait = 0; wait < 1000; ++wait) RTAbsSleep().manualBackoff(1'000'000'000);
  EXPECT_LT(CTime::getCurrentMilliSecond(), end + 10'000) << "none of them slept a second";
}

TEST(RTAbsSleepTest, SleepsTheLimitInSimulatedTime) {
  const VirtualClock clock;
  const std::uint64_t begin = CTime::getCurrentMicroSecond();
  RTAbsSleep pause;
  for (int i = 0; i < 3; ++i) pause.manualBackoff(100'000);
  pause.manualBackoff(0);
  EXPECT_EQ(CTime::getCurrentMicroSecond(), begin + 301);
}

}  // namespace
}  // namespace Pexal::PBase
