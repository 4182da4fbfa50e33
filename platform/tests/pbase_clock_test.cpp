#include <atomic>
#include <future>
#include <limits>
#include <thread>

#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"
#include "test_support.h"

namespace Pexal::PBase {
namespace {

using platform_test::startThread;
using testing::ElementsAre;

constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

std::uint64_t elapsedMs() {
  return CTime::getCurrentMilliSecond() - VirtualClock::kDefaultStartUs / 1000;
}

/// What happened when, in simulated milliseconds.
class Journal {
 public:
  void add(const std::string& what) {
    const std::lock_guard guard(mutex_);
    entries_.push_back(std::to_string(elapsedMs()) + " " + what);
  }
  std::vector<std::string> entries() {
    const std::lock_guard guard(mutex_);
    return entries_;
  }

 private:
  CMutex mutex_;  // guards entries_
  std::vector<std::string> entries_;
};

TEST(VirtualClockTest, PeriodicThreadsRunInTheSameOrderEveryTime) {
  constexpr std::uint32_t kEndMs = 600'000;
  const std::vector<std::uint32_t> periodsMs = {300, 200, 500, 200, 300};
  std::vector<std::string> expected;
  for (std::uint64_t ms = 100; ms <= kEndMs; ms += 100) {
    // The longer the period, the earlier that wait began; equal ones by the start of their threads.
    for (const std::size_t index : {2U, 0U, 4U, 1U, 3U}) {
      if (ms % periodsMs[index] == 0) {
        expected.push_back(std::to_string(ms) + " " + std::to_string(index));
      }
    }
  }
  for (int run = 0; run < 3; ++run) {
    VirtualClock clock;
    Journal journal;
    std::vector<std::unique_ptr<CThread>> threads;
    for (std::size_t index = 0; index < periodsMs.size(); ++index) {
      threads.push_back(startThread([&, index] {
        while (CThread::looping()) {
          CThread::sleep(periodsMs[index]);
          if (CThread::looping()) journal.add(std::to_string(index));
        }
      }));
    }
    clock.advance(kEndMs);
    ASSERT_EQ(journal.entries(), expected) << "run " << run;
  }
}

TEST(VirtualClockTest, PostWakesAWaiterAtThePostersTime) {
  VirtualClock clock;
  Journal journal;
  CSemaphore semaphore(0);
  const auto waiter = startThread([&] {
    journal.add(semaphore.wait(10'000) ? "taken" : "ran out");
    journal.add(semaphore.wait(3'000) ? "taken" : "ran out");
  });
  const auto poster = startThread([&] {
    CThread::sleep(5'000);
    semaphore.post();
  });
  clock.advance(60'000);
  EXPECT_THAT(journal.entries(), ElementsAre("5000 taken", "8000 ran out"));

  CSemaphore passedOn(0);  // through two threads, while no time passes
  bool done = false;
  const auto one = startThread([&] {
    if (semaphore.wait(1'000)) passedOn.post();
  });
  const auto two = startThread([&] { done = passedOn.wait(1'000); });
  semaphore.post();
  clock.advance(0);
  EXPECT_TRUE(done);
  EXPECT_EQ(elapsedMs(), 60'000U);
}

TEST(VirtualClockTest, LeavesRealTimeBehindAsItWasUnlessAThreadStillWaits) {
  { const VirtualClock reset; }
  const auto before = CTime::getCurrentMicroSecond();
  {
    VirtualClock clock;
    clock.advanceMicroseconds(1'500);
    EXPECT_EQ(CTime::getCurrentMicroSecond(), VirtualClock::kDefaultStartUs + 1'500);
    EXPECT_THROW(VirtualClock second, std::logic_error);
  }
  const auto after = CTime::getCurrentMicroSecond();
  EXPECT_GE(after, before);
  EXPECT_LT(after, before + 60'000'000);

  bool ranOut = false;
  CSemaphore never(0);
  std::unique_ptr<CThread> survivor;
  {
    VirtualClock clock;
    survivor = startThread([&] { ranOut = !never.wait(20); });
    clock.advance(1);
  }
  survivor.reset();
  EXPECT_TRUE(ranOut);
  EXPECT_GE(CTime::getCurrentMicroSecond(), VirtualClock::kDefaultStartUs + 20'000) << "backwards";
}

TEST(VirtualClockDeathTest, WatchdogNamesTheThreadsOfAFreeze) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto freeze = [] {
    VirtualClock clock(VirtualClock::kDefaultStartUs, 100);
    std::promise<void> never;
    const auto stuck = startThread([&] { never.get_future().wait(); }, "stuck");
    const auto idle = startThread([] { CThread::sleep(7'000); }, "idle");
    clock.advance(1);
  };
  EXPECT_DEATH(freeze(),
               "stuck: runs, or is blocked outside(.|\n)*idle: waits until 1000007000000");
}

TEST(RealClockTest, WaitsEndByTimeOrByNews) {
  CSemaphore semaphore(0);
  const auto before = CTime::getCurrentMicroSecond();
  EXPECT_FALSE(semaphore.wait(0));
  EXPECT_FALSE(semaphore.wait(30));
  EXPECT_GE(CTime::getCurrentMicroSecond(), before + 30'000);
  semaphore.post();
  semaphore.clear();
  EXPECT_FALSE(semaphore.wait(0));
  const auto poster = startThread([&] { semaphore.post(); });
  EXPECT_TRUE(semaphore.wait(std::numeric_limits<std::uint32_t>::max()));

  CMutex mutex;
  CCondition condition;
  for (const std::uint64_t endless : {kNever, kNever - 1, kNever / 2}) {
    bool ready = false;
    const auto notifier = startThread([&] {
      const std::lock_guard guard(mutex);
      ready = true;
      condition.notifyAll();
    });
    std::unique_lock lock(mutex);
    EXPECT_TRUE(condition.waitUntil(lock, endless, [&] { return ready; }));
  }
}

}  // namespace
}  // namespace Pexal::PBase
