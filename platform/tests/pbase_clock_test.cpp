#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pbase/CMutex.h"
#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"

namespace Pexal::PBase {
namespace {

constexpr std::uint64_t kStartMs = VirtualClock::kDefaultStartUs / 1000;
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

std::uint64_t elapsedMs() {
  return CTime::getCurrentMilliSecond() - kStartMs;
}

/// What happened when, in simulated milliseconds.
class Journal {
 public:
  void add(const std::string& what) {
    const std::lock_guard guard(mutex_);
    entries_.push_back(std::to_string(elapsedMs()) + " " + what);
  }
  std::vector<std::string> entries() const {
    const std::lock_guard guard(mutex_);
    return entries_;
  }

 private:
  mutable CMutex mutex_;
  std::vector<std::string> entries_;
};

std::unique_ptr<CThread> start(const std::string& name, std::function<void()> body) {
  auto thread = std::make_unique<CThreadLite>(name, 0, 0, 0, std::move(body));
  EXPECT_TRUE(thread->createThread());
  return thread;
}

TEST(VirtualClockTest, PeriodicThreadsRunInTheSameOrderEveryTime) {
  constexpr unsigned kMinutes = 10;
  const std::vector<std::uint32_t> periodsMs = {300, 200, 500, 200, 300};
  std::vector<std::string> expected;
  for (std::uint64_t ms = 100; ms <= kMinutes * 60'000; ms += 100) {
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
      threads.push_back(start("periodic", [&, index] {
        while (CThread::looping()) {
          CThread::sleep(periodsMs[index]);
          if (CThread::looping()) journal.add(std::to_string(index));
        }
      }));
    }
    clock.advance(kMinutes * 60'000);
    EXPECT_EQ(elapsedMs(), kMinutes * 60'000);
    ASSERT_EQ(journal.entries(), expected) << "run " << run;
  }
}

TEST(VirtualClockTest, PostWakesAWaiterAtThePostersTime) {
  VirtualClock clock;
  Journal journal;
  CSemaphore semaphore(0);
  const auto waiter = start("waiter", [&] {
    journal.add(semaphore.wait(10'000) ? "taken" : "ran out");
    journal.add(semaphore.wait(3'000) ? "taken" : "ran out");
  });
  const auto poster = start("poster", [&] {
    CThread::sleep(5'000);
    semaphore.post();
  });
  clock.advance(60'000);
  EXPECT_THAT(journal.entries(), testing::ElementsAre("5000 taken", "8000 ran out"));
}

TEST(VirtualClockTest, PostAtTheMomentOfATimeoutGoesByTheOrderOfTheWaits) {
  for (const bool posterFirst : {false, true}) {
    VirtualClock clock;
    CSemaphore semaphore(0);
    std::optional<bool> taken;
    std::vector<std::unique_ptr<CThread>> threads;
    const auto startPoster = [&] {
      threads.push_back(start("poster", [&] {
        CThread::sleep(10);
        semaphore.post();
      }));
    };
    if (posterFirst) startPoster();
    threads.push_back(start("waiter", [&] { taken = semaphore.wait(10); }));
    if (!posterFirst) startPoster();
    clock.advance(10);
    EXPECT_EQ(taken, posterFirst);
    EXPECT_EQ(semaphore.wait(0), !posterFirst) << "one post is taken once";
  }
}

TEST(VirtualClockTest, AdvanceByNothingLetsOthersFinishWhatIsDueNow) {
  VirtualClock clock;
  CSemaphore first(0);
  CSemaphore second(0);
  bool done = false;
  const auto one = start("one", [&] {
    if (first.wait(1'000)) second.post();
  });
  const auto two = start("two", [&] { done = second.wait(1'000); });
  first.post();
  clock.advance(0);
  EXPECT_TRUE(done);
  EXPECT_EQ(elapsedMs(), 0U);
}

TEST(VirtualClockTest, NotifyOneWakesOneAndNotifyAllWakesAll) {
  VirtualClock clock;
  CMutex mutex;
  CCondition condition;
  int tokens = 0;
  int taken = 0;
  std::vector<std::unique_ptr<CThread>> threads;
  for (int i = 0; i < 3; ++i) {
    threads.push_back(start("taker", [&] {
      std::unique_lock lock(mutex);
      if (!condition.waitUntil(lock, kNever, [&] { return tokens > 0; })) return;
      --tokens;
      ++taken;
    }));
  }
  const auto give = [&](int count, void (CCondition::*notify)() noexcept) {
    {
      const std::lock_guard guard(mutex);
      tokens += count;
    }
    (condition.*notify)();
    clock.advance(1);
    return taken;
  };
  clock.advance(1);
  EXPECT_EQ(give(2, &CCondition::notifyOne), 1);
  EXPECT_EQ(give(0, &CCondition::notifyAll), 2);
  EXPECT_EQ(give(1, &CCondition::notifyAll), 3);
}

TEST(VirtualClockTest, JoiningAThreadDoesNotStopTime) {
  VirtualClock clock;
  CSemaphore never(0);
  auto patient = start("patient", [&] { (void)never.wait(3'000); });
  const auto destroyer = start("destroyer", [&] { patient.reset(); });
  clock.advance(2'999);
  EXPECT_FALSE(destroyer->isThreadOver());
  clock.advance(1);
  EXPECT_TRUE(destroyer->isThreadOver());
}

TEST(VirtualClockTest, ForeignThreadsWaitAndNotifyByTheClock) {
  VirtualClock clock;
  Journal journal;
  CMutex mutex;
  CCondition told;
  bool flag = false;
  CSemaphore never(0);
  const auto listener = start("listener", [&] {
    std::unique_lock lock(mutex);
    journal.add(told.waitUntil(lock, kNever, [&] { return flag; }) ? "told" : "ran out");
  });
  std::thread foreign([&] {
    {
      const std::lock_guard guard(mutex);
      flag = true;
      told.notifyAll();
    }
    EXPECT_FALSE(never.wait(5'000));
  });
  {
    const ExternalWait wait;
    foreign.join();
  }
  EXPECT_EQ(elapsedMs(), 5'000U);
  EXPECT_THAT(journal.entries(), testing::ElementsAre("0 told"));
}

TEST(VirtualClockTest, ThreadsGoOnInRealTimeWhenTheClockIsRemoved) {
  std::uint64_t before = 0;
  std::unique_ptr<CThread> thread;
  bool ranOut = false;
  CSemaphore never(0);
  {
    VirtualClock clock;
    thread = start("survivor", [&] { ranOut = !never.wait(20); });
    clock.advance(1);
    before = CTime::getCurrentMicroSecond();
  }
  thread.reset();
  EXPECT_TRUE(ranOut);
  EXPECT_GE(CTime::getCurrentMicroSecond(), before + 19'000) << "time never runs backwards";
}

TEST(VirtualClockTest, LeavesRealTimeBehindAsItWas) {
  { const VirtualClock reset; }
  const auto before = CTime::getCurrentMicroSecond();
  {
    VirtualClock clock;
    EXPECT_EQ(CTime::getCurrentMicroSecond(), VirtualClock::kDefaultStartUs);
    clock.advanceMicroseconds(1'500);
    EXPECT_EQ(CTime::getCurrentMicroSecond(), VirtualClock::kDefaultStartUs + 1'500);
    EXPECT_THROW(VirtualClock second, std::logic_error);
  }
  const auto after = CTime::getCurrentMicroSecond();
  EXPECT_GE(after, before);
  EXPECT_LT(after, before + 60'000'000);
}

TEST(VirtualClockDeathTest, WatchdogNamesTheThreadsOfAFreeze) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto freeze = [] {
    VirtualClock clock(VirtualClock::kDefaultStartUs, 100);
    std::promise<void> never;
    const auto stuck = start("stuck", [&] { never.get_future().wait(); });
    const auto idle = start("idle", [] { CThread::sleep(7'000); });
    clock.advance(1);
  };
  EXPECT_DEATH(freeze(),
               "stuck: runs, or is blocked outside(.|\n)*idle: waits until 1000007000000");
}

TEST(RealClockTest, WaitsTakeTheirTimeAndNoMore) {
  CSemaphore semaphore(0);
  const auto before = CTime::getCurrentMicroSecond();
  EXPECT_FALSE(semaphore.wait(0));
  EXPECT_FALSE(semaphore.wait(30));
  EXPECT_GE(CTime::getCurrentMicroSecond(), before + 30'000);

  const auto poster = start("poster", [&] { semaphore.post(); });
  EXPECT_TRUE(semaphore.wait(std::numeric_limits<std::uint32_t>::max()));
  semaphore.post();
  semaphore.clear();
  EXPECT_FALSE(semaphore.wait(0));
}

TEST(RealClockTest, EndlessDeadlineWaitsForTheNotification) {
  CMutex mutex;
  CCondition condition;
  bool ready = false;
  for (const std::uint64_t deadline : {kNever, kNever - 1, kNever / 2}) {
    ready = false;
    const auto notifier = start("notifier", [&] {
      const std::lock_guard guard(mutex);
      ready = true;
      condition.notifyAll();
    });
    std::unique_lock lock(mutex);
    EXPECT_TRUE(condition.waitUntil(lock, deadline, [&] { return ready; }));
  }
}

}  // namespace
}  // namespace Pexal::PBase
