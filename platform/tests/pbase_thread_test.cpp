#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <stdexcept>

#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pbase/PrioMutex.h"
#include "pbase/System.h"
#include "pbase/VirtualClock.h"
#include "test_support.h"

namespace Pexal::PBase {
namespace {

using platform_test::kDeadlineMs;
using platform_test::LogWatch;
using platform_test::startThread;

TEST(ThreadTest, RunsAgainAfterItsEndButNotTwiceAtOnce) {
  VirtualClock clock;
  int runs = 0;
  CThreadLite thread("again", 0, 0, 0, [&] {
    ++runs;
    while (CThread::looping()) CThread::sleep(1'000);
  });
  EXPECT_TRUE(thread.isThreadOver());
  thread.cancelThread();  // nothing runs: must not cancel the next run
  for (int run = 1; run <= 3; ++run) {
    ASSERT_TRUE(thread.createThread());
    EXPECT_FALSE(thread.createThread());
    clock.advance(10'000);
    EXPECT_FALSE(thread.isThreadOver());
    EXPECT_EQ(runs, run);
    thread.cancelThread();
    clock.advance(0);
    EXPECT_TRUE(thread.isThreadOver()) << "the cancelled sleep must end at once";
  }
  EXPECT_TRUE(CThread::looping()) << "on a thread that isn't a CThread";
}

TEST(ThreadTest, DestructionEndsASleepInRealTime) {
  const auto before = CTime::getCurrentMilliSecond();
  CSemaphore started(0);
  auto sleeper = startThread([&] {
    started.post();
    CThread::sleep(600'000);
  });
  ASSERT_TRUE(started.wait(kDeadlineMs));
  sleeper.reset();
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, kDeadlineMs);
}

TEST(ThreadTest, OnlySleepsAreCancelledAndLaterOnesAreShort) {
  VirtualClock clock;
  unsigned polls = 0;
  CSemaphore never(0);
  const auto thread = startThread([&] {
    CThread::sleep(600'000);
    (void)never.wait(500);
  });
  const auto poller = startThread([&] {
    CThread::sleep(600'000);
    for (; !thread->isThreadOver(); ++polls) CThread::sleep(10);
  });
  clock.advance(0);
  thread->cancelThread();
  poller->cancelThread();
  clock.advance(499);
  EXPECT_FALSE(thread->isThreadOver()) << "before its body has returned";
  clock.advance(2);
  EXPECT_TRUE(thread->isThreadOver());
  EXPECT_TRUE(poller->isThreadOver());
  EXPECT_LE(polls, 501U) << "it spins";
}

/// A worker that owns itself and lets go of itself from its own body.
struct SelfOwned {
  std::shared_ptr<SelfOwned> self;
  std::unique_ptr<CThread> thread;
};

TEST(ThreadTest, ObjectDestroyedOnItsOwnThreadEndsByItself) {
  for (int run = 0; run < 50; ++run) {
    CSemaphore ended(0);
    auto owner = std::make_shared<SelfOwned>();
    const std::weak_ptr<SelfOwned> watch = owner;
    owner->self = owner;
    owner->thread = std::make_unique<CThreadLite>("own", 0, 0, 0, [&ended, raw = owner.get()] {
      EXPECT_TRUE(raw->thread->isCurrentThread());
      std::shared_ptr<SelfOwned>(std::move(raw->self)).reset();
      CThread::sleep(0);
      EXPECT_FALSE(CThread::looping()) << "nobody else could ever end it";
      ended.post();
    });
    CThread& thread = *owner->thread;
    owner.reset();
    ASSERT_TRUE(thread.createThread());
    ASSERT_TRUE(ended.wait(kDeadlineMs));
    EXPECT_TRUE(watch.expired());
  }
}

TEST(ThreadTest, ExceptionIsLoggedAndEndsTheThread) {
  VirtualClock clock;
  const LogWatch log;
  const auto known = startThread([] { throw std::runtime_error("out of cheese"); }, "thrower");
  const auto unknown = startThread([] { throw 42; }, "other");
  clock.advance(0);
  EXPECT_TRUE(known->isThreadOver() && unknown->isThreadOver());
  EXPECT_EQ(log.with("4 [CThread]thrower ended by an exception: out of cheese").size(), 1U);
  EXPECT_EQ(log.with("4 [CThread]other ended by an exception").size(), 1U) << log.all();
}

TEST(ThreadTest, HasItsNameStackAndErrno) {
  VirtualClock clock;
  setLastErrno(29);
  std::string name;
  std::size_t stackBytes = 0;
  std::array<std::uint32_t, 2> errors{1, 1};
  // SCHED_FIFO may be refused to this process; the thread runs all the same.
  CThreadLite thread("robotSdk:HLClient", 64, 1, 1, [&] {
    std::array<char, 16> buffer{};
    pthread_getname_np(pthread_self(), buffer.data(), buffer.size());
    name = buffer.data();
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stackBytes);
    pthread_attr_destroy(&attributes);
    errors[0] = getLastErrno();
    setLastErrno(7);
    errors[1] = getLastErrno();
  });
  ASSERT_TRUE(thread.createThread());
  clock.advance(0);
  EXPECT_EQ(name, "robotSdk:HLClie");
  EXPECT_GE(stackBytes, 4U << 20);
  EXPECT_THAT(errors, testing::ElementsAre(0U, 7U));
  EXPECT_EQ(getLastErrno(), 29U);
}

TEST(ThreadTest, SurvivesBeingCancelledAndWatchedFromEverywhere) {
  std::atomic<bool> stop{false};
  CThreadLite target("target", 0, 0, 0, [] {
    while (CThread::looping()) CThread::sleep(1);
  });
  std::vector<std::unique_ptr<CThread>> meddlers;
  for (int i = 0; i < 3; ++i) {
    meddlers.push_back(startThread([&] {
      while (!stop) {
        target.cancelThread();
        (void)target.isThreadOver();
      }
    }));
  }
  int starts = 0;
  const auto deadline = CTime::getCurrentMilliSecond() + kDeadlineMs;
  while (starts < 30 && CTime::getCurrentMilliSecond() < deadline) {
    if (target.createThread()) ++starts;
  }
  stop = true;
  EXPECT_EQ(starts, 30);
}

/// What the kernel runs a thread of this process at: -1 minus its real-time priority.
int kernelPriority(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string word;
  for (int field = 1; field <= 18; ++field) status >> word;
  return std::atoi(word.c_str());
}

TEST(ThreadTest, WhoHoldsAPrioMutexRunsAsUrgentlyAsItsWaiter) {
  PrioMutex mutex;
  CSemaphore held(0);
  CSemaphore release(0);
  std::atomic<pid_t> holder{0};
  CThreadLite relaxed("relaxed", 0, 1, 10, [&] {
    const std::lock_guard lock(mutex);
    holder = gettid();
    held.post();
    EXPECT_TRUE(release.wait(kDeadlineMs));
  });
  ASSERT_TRUE(relaxed.createThread());
  ASSERT_TRUE(held.wait(kDeadlineMs));
  EXPECT_FALSE(mutex.try_lock());
  if (kernelPriority(holder) != -11) {
    release.post();
    GTEST_SKIP() << "no right to real-time priorities here";
  }
  CThreadLite urgent("urgent", 0, 1, 20, [&] { const std::lock_guard lock(mutex); });
  ASSERT_TRUE(urgent.createThread());
  EXPECT_TRUE(platform_test::waitUntil([&] { return kernelPriority(holder) == -21; }));
  release.post();
  EXPECT_TRUE(platform_test::waitUntil([&] { return urgent.isThreadOver(); }));
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

}  // namespace
}  // namespace Pexal::PBase
