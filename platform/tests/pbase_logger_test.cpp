#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "pbase/CSemaphore.h"
#include "test_support.h"

namespace Pexal {
namespace {

using PBase::CSemaphore;
using PBase::CThread;
using platform_test::kDeadlineMs;
using platform_test::startThread;
using testing::ElementsAre;

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

  ILogger::SinkId collect() {
    return logger().addSink([this](std::uint32_t level, const char* text, int length) {
      EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(length));
      records_.push_back(std::to_string(level) + ":" + text);
    });
  }

  std::vector<std::string> records_;
};

TEST_F(LoggerTest, SinkGetsLevelAndTextAsFormatted) {
  const auto sink = collect();
  errno = EDOM;
  logger().log(5, "MotionSdk", "[%s:%d] with blank %u\n", "Unit", 12, 7U);
  EXPECT_EQ(errno, EDOM);
  logger().log(77, nullptr, "%s", "");
  logger().removeSink(sink);
  logger().log(1, "MotionSdk", "after\n");
  EXPECT_THAT(records_, ElementsAre("5:[Unit:12] with blank 7\n", "77:"));
}

TEST_F(LoggerTest, LongRecordIsCutBetweenCharactersAndStaysALine) {
  const auto sink = collect();
  logger().configure("robotSdk", 100);
  logger().log(1, "tag", "%s\n", std::string(99, 'x').c_str());
  logger().log(1, "tag", "%s\xE2\x82\xAC\xE2\x82\xAC\n", std::string(97, 'x').c_str());
  logger().log(1, "tag", "%s", std::string(100'000, 'x').c_str());
  logger().removeSink(sink);
  EXPECT_THAT(records_,
              ElementsAre("1:" + std::string(99, 'x') + "\n", "1:" + std::string(97, 'x') + "\n",
                          "1:" + std::string(100, 'x')));
}

TEST_F(LoggerTest, WhatASinkLogsOrThrowsReachesTheOthersOnly) {
  int own = 0;
  const auto noisy = logger().addSink([&](std::uint32_t, const char*, int) {
    ++own;
    logger().log(3, "sink", "from inside\n");
    throw std::runtime_error("thrown by a sink");
  });
  const auto other = collect();
  logger().log(1, "tag", "outer\n");
  EXPECT_THAT(records_, ElementsAre("3:from inside\n", "1:outer\n"));
  logger().log(1, "tag", "again\n");
  EXPECT_EQ(own, 2);
  logger().removeSink(noisy);
  logger().removeSink(other);
}

TEST_F(LoggerTest, SinksComeAndGoWhileOthersLog) {
  std::atomic<bool> stop{false};
  std::vector<std::unique_ptr<CThread>> threads;
  for (int i = 0; i < 3; ++i) {
    threads.push_back(startThread([&stop] {
      while (!stop) logger().log(1, "tag", "%s\n", "line");
    }));
  }
  for (int round = 0; round < 200; ++round) {
    auto calls = std::make_unique<std::atomic<int>>(0);  // freed: a late call is use after free
    CSemaphore called(0);
    const auto sink = logger().addSink([&, raw = calls.get()](std::uint32_t, const char*, int) {
      if (++*raw == 1) called.post();
    });
    ASSERT_TRUE(called.wait(kDeadlineMs));
    logger().removeSink(sink);
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
    EXPECT_TRUE(goOn.wait(kDeadlineMs));
    finished = true;
  });
  const auto logging = startThread([] { logger().log(1, "tag", "line\n"); });
  ASSERT_TRUE(inside.wait(kDeadlineMs));
  const auto other = startThread([&] { goOn.post(); });
  logger().removeSink(sink);
  EXPECT_TRUE(finished);
  EXPECT_TRUE(watch.expired()) << "what the sink holds goes with it";
}

TEST_F(LoggerTest, SinkRemovesItselfWhileItRunsElsewhereToo) {
  CSemaphore inside(0);
  CSemaphore goOn(0);
  std::atomic<int> calls{0};
  ILogger::SinkId sink = 0;
  sink = logger().addSink([&](std::uint32_t, const char* text, int) {
    ++calls;
    if (std::string(text) == "stay\n") {
      inside.post();
      EXPECT_TRUE(goOn.wait(kDeadlineMs));
    } else {
      logger().removeSink(sink);  // must not wait for the other call
    }
  });
  const auto staying = startThread([] { logger().log(1, "tag", "stay\n"); });
  ASSERT_TRUE(inside.wait(kDeadlineMs));
  logger().log(1, "tag", "remove\n");
  logger().log(1, "tag", "later\n");
  EXPECT_EQ(calls, 2);
  goOn.post();
}

TEST_F(LoggerTest, ConsoleShowsTimeNameLevelTagAndText) {
  testing::internal::CaptureStdout();
  logger().log(1, "hidden", "off\n");
  logger().enableConsole(true);
  logger().log(3, "MotionSdk", "[Unit:1]refused: %s\n", "{}");
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::MatchesRegex(
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
