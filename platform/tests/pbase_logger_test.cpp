#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pbase/ILogger.h"

namespace Pexal {
namespace {

using PBase::CSemaphore;
using PBase::CThreadLite;
using testing::ElementsAre;

constexpr std::uint32_t kPatienceMs = 20'000;

ILogger& logger() {
  return *ILogger::instance();
}

class LoggerTest : public testing::Test {
 protected:
  void SetUp() override {
    logger().configure("robotSdk", 4096);
    logger().enableConsole(false);
  }
  void TearDown() override { logger().enableConsole(true); }

  ILogger::SinkId collect(std::vector<std::string>& records) {
    return logger().addSink([&records](std::uint32_t level, const char* text, int length) {
      EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(length));
      records.push_back(std::to_string(level) + ":" + text);
    });
  }
};

TEST_F(LoggerTest, SinkGetsLevelAndTextAsFormatted) {
  std::vector<std::string> records;
  const auto sink = collect(records);
  errno = EDOM;
  logger().log(5, "MotionSdk", "[%s:%d] with blank %u\n", "Unit", 12, 7U);
  EXPECT_EQ(errno, EDOM);
  logger().log(77, nullptr, "%s", "");
  logger().removeSink(sink);
  logger().log(1, "MotionSdk", "after\n");
  EXPECT_THAT(records, ElementsAre("5:[Unit:12] with blank 7\n", "77:"));
}

TEST_F(LoggerTest, LongRecordIsCutBetweenCharactersAndStaysALine) {
  std::vector<std::string> records;
  const auto sink = collect(records);
  logger().configure("robotSdk", 100);
  const std::string euros = "\xE2\x82\xAC\xE2\x82\xAC";
  logger().log(1, "tag", "%s\n", std::string(99, 'x').c_str());
  logger().log(1, "tag", "%s%s\n", std::string(97, 'x').c_str(), euros.c_str());
  logger().log(1, "tag", "%s", std::string(100'000, 'x').c_str());
  logger().removeSink(sink);
  EXPECT_THAT(records,
              ElementsAre("1:" + std::string(99, 'x') + "\n", "1:" + std::string(97, 'x') + "\n",
                          "1:" + std::string(100, 'x')));
}

TEST_F(LoggerTest, WhatASinkLogsOrThrowsReachesTheOthersOnly) {
  std::vector<std::string> others;
  int own = 0;
  const auto noisy = logger().addSink([&](std::uint32_t, const char*, int) {
    ++own;
    logger().log(3, "sink", "from inside\n");
    throw std::runtime_error("thrown by a sink");
  });
  const auto other = collect(others);
  logger().log(1, "tag", "outer\n");
  EXPECT_EQ(own, 1);
  EXPECT_THAT(others, ElementsAre("3:from inside\n", "1:outer\n"));
  logger().log(1, "tag", "again\n");
  EXPECT_EQ(own, 2);
  logger().removeSink(noisy);
  logger().removeSink(other);
}

TEST_F(LoggerTest, RemovedSinkIsNotRunningAndNeverRunsAgain) {
  std::atomic<bool> stop{false};
  std::vector<std::unique_ptr<CThreadLite>> threads;
  for (int i = 0; i < 3; ++i) {
    threads.push_back(std::make_unique<CThreadLite>("logging", 0, 0, 0, [&stop] {
      while (!stop) logger().log(1, "tag", "%s\n", "line");
    }));
    ASSERT_TRUE(threads.back()->createThread());
  }
  for (int round = 0; round < 200; ++round) {
    auto calls =
        std::make_unique<std::atomic<int>>(0);  // freed at once: a late call is use after free
    CSemaphore called(0);
    const auto sink =
        logger().addSink([&called, raw = calls.get()](std::uint32_t, const char*, int) {
          if (++*raw == 1) called.post();
        });
    ASSERT_TRUE(called.wait(kPatienceMs));
    logger().removeSink(sink);
    calls.reset();
  }
  stop = true;
}

TEST_F(LoggerTest, RemovalWaitsForACallInProgress) {
  CSemaphore inside(0);
  CSemaphore goOn(0);
  std::atomic<bool> finished{false};
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watch = held;
  const auto sink = logger().addSink([&, held = std::move(held)](std::uint32_t, const char*, int) {
    inside.post();
    EXPECT_TRUE(goOn.wait(kPatienceMs));
    finished = true;
  });
  CThreadLite logging("logging", 0, 0, 0, [] { logger().log(1, "tag", "line\n"); });
  ASSERT_TRUE(logging.createThread());
  ASSERT_TRUE(inside.wait(kPatienceMs));
  CThreadLite other("other", 0, 0, 0, [&] { goOn.post(); });
  ASSERT_TRUE(other.createThread());
  logger().removeSink(sink);
  EXPECT_TRUE(finished);
  EXPECT_TRUE(watch.expired()) << "what the sink holds goes with it";
}

TEST_F(LoggerTest, SinkRemovesItselfWhileItRunsElsewhereToo) {
  CSemaphore removed(0);
  CSemaphore goOn(0);
  std::atomic<int> calls{0};
  ILogger::SinkId sink = 0;
  sink = logger().addSink([&](std::uint32_t, const char* text, int) {
    ++calls;
    if (std::string(text) == "stay\n") {
      EXPECT_TRUE(goOn.wait(kPatienceMs));
    } else {
      logger().removeSink(sink);
      removed.post();
    }
  });
  CThreadLite staying("staying", 0, 0, 0, [] { logger().log(1, "tag", "stay\n"); });
  ASSERT_TRUE(staying.createThread());
  while (calls == 0) PBase::CThread::sleep(1);
  logger().log(1, "tag", "remove\n");
  EXPECT_TRUE(removed.wait(0)) << "removal from inside must not wait for the other call";
  logger().log(1, "tag", "later\n");
  EXPECT_EQ(calls, 2);
  goOn.post();
}

TEST_F(LoggerTest, ConsoleShowsTimeNameLevelTagAndText) {
  testing::internal::CaptureStdout();
  logger().log(1, "hidden", "off\n");
  logger().enableConsole(true);
  logger().log(3, "MotionSdk", "[Unit:1]refused: %s\n", "{}");
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_THAT(text, testing::MatchesRegex(
                        R"(\[.*\] \[robotSdk\] \[warning\] \[MotionSdk\] \[Unit:1\]refused: \{\})"
                        "\n"));
}

struct LogsAtExit {
  ~LogsAtExit() { logger().log(1, "tag", "farewell\n"); }
};

TEST_F(LoggerTest, StaticDestructorsMayLog) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto leave = [] {
    static const LogsAtExit last;
    logger().addSink([](std::uint32_t, const char* text, int) { std::fputs(text, stderr); });
    std::exit(0);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "farewell");
}

}  // namespace
}  // namespace Pexal
