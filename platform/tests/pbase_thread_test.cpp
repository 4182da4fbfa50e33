#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/System.h"
#include "pbase/VirtualClock.h"

namespace Pexal::PBase {
namespace {

constexpr std::uint32_t kPatienceMs = 20'000;

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
  {
    CThreadLite thread("sleeper", 0, 0, 0, [&] {
      started.post();
      CThread::sleep(600'000);
    });
    ASSERT_TRUE(thread.createThread());
    ASSERT_TRUE(started.wait(kPatienceMs));
  }
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, kPatienceMs);
}

TEST(ThreadTest, IsNotOverBeforeTheBodyHasReturned) {
  VirtualClock clock;
  bool returned = false;
  CThreadLite thread("slow end", 0, 0, 0, [&] {
    CThread::sleep(600'000);
    CSemaphore cleanup(0);
    (void)cleanup.wait(500);  // only sleeps are cancelled
    returned = true;
  });
  ASSERT_TRUE(thread.createThread());
  clock.advance(0);
  thread.cancelThread();
  clock.advance(499);
  EXPECT_FALSE(thread.isThreadOver());
  clock.advance(1);
  EXPECT_TRUE(thread.isThreadOver());
  EXPECT_TRUE(returned);
}

TEST(ThreadTest, PollingOnACancelledThreadNeitherSpinsNorStopsTime) {
  VirtualClock clock;
  unsigned polls = 0;
  CSemaphore never(0);
  CThreadLite other("other", 0, 0, 0, [&] { (void)never.wait(50); });
  CThreadLite thread("poller", 0, 0, 0, [&] {
    CThread::sleep(600'000);
    for (; !other.isThreadOver(); ++polls) CThread::sleep(10);
  });
  ASSERT_TRUE(other.createThread());
  ASSERT_TRUE(thread.createThread());
  thread.cancelThread();
  clock.advance(51);
  EXPECT_TRUE(thread.isThreadOver());
  EXPECT_LE(polls, 51U);
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
    ASSERT_TRUE(ended.wait(kPatienceMs));
    EXPECT_TRUE(watch.expired());
  }
}

TEST(ThreadTest, ExceptionIsLoggedAndEndsTheThread) {
  VirtualClock clock;
  std::vector<std::string> records;
  ILogger::instance()->enableConsole(false);
  const auto sink = ILogger::instance()->addSink([&](std::uint32_t level, const char* text, int) {
    records.push_back(std::to_string(level) + " " + text);
  });
  bool wellKnown = true;
  CThreadLite thread("thrower", 0, 0, 0, [&] {
    if (wellKnown) throw std::runtime_error("out of cheese");
    throw 42;
  });
  for (const bool known : {true, false}) {
    wellKnown = known;
    ASSERT_TRUE(thread.createThread());
    clock.advance(0);
    EXPECT_TRUE(thread.isThreadOver());
  }
  ILogger::instance()->removeSink(sink);
  ILogger::instance()->enableConsole(true);
  EXPECT_THAT(records,
              testing::ElementsAre(
                  testing::HasSubstr("4 [CThread]thrower ended by an exception: out of cheese"),
                  testing::HasSubstr("unknown type")));
}

TEST(ThreadTest, HasItsNameAndStack) {
  VirtualClock clock;
  std::string name;
  std::size_t stackBytes = 0;
  // SCHED_FIFO may be refused to this process; the thread runs all the same.
  CThreadLite thread("robotSdk:HLClient", 64, 1, 1, [&] {
    std::array<char, 16> buffer{};
    pthread_getname_np(pthread_self(), buffer.data(), buffer.size());
    name = buffer.data();
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stackBytes);
    pthread_attr_destroy(&attributes);
  });
  ASSERT_TRUE(thread.createThread());
  clock.advance(0);
  EXPECT_EQ(name, "robotSdk:HLClie");
  EXPECT_GE(stackBytes, 4U << 20);
}

TEST(ThreadTest, SurvivesBeingCancelledAndWatchedFromEverywhere) {
  CSemaphore finished(0);
  std::atomic<bool> stop{false};
  CThreadLite target("target", 0, 0, 0, [] {
    while (CThread::looping()) CThread::sleep(1);
  });
  std::vector<std::unique_ptr<CThread>> meddlers;
  for (int i = 0; i < 3; ++i) {
    meddlers.push_back(std::make_unique<CThreadLite>("meddler", 0, 0, 0, [&] {
      while (!stop) {
        target.cancelThread();
        (void)target.isThreadOver();
      }
    }));
    ASSERT_TRUE(meddlers.back()->createThread());
  }
  int starts = 0;
  const auto deadline = CTime::getCurrentMilliSecond() + kPatienceMs;
  while (starts < 30 && CTime::getCurrentMilliSecond() < deadline) {
    if (target.createThread()) ++starts;
  }
  stop = true;
  EXPECT_EQ(starts, 30);
}

TEST(ThreadTest, LastErrnoBelongsToTheThread) {
  setLastErrno(29);
  std::uint32_t before = 1;
  std::uint32_t after = 0;
  {
    CSemaphore done(0);
    CThreadLite thread("errno", 0, 0, 0, [&] {
      before = getLastErrno();
      setLastErrno(7);
      after = getLastErrno();
      done.post();
    });
    ASSERT_TRUE(thread.createThread());
    ASSERT_TRUE(done.wait(kPatienceMs));
  }
  EXPECT_EQ(before, 0U);
  EXPECT_EQ(after, 7U);
  EXPECT_EQ(getLastErrno(), 29U);
}

}  // namespace
}  // namespace Pexal::PBase
