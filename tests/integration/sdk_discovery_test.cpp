// Discovery and the service's life cycle against virtual robots over DDS.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

TEST(Discovery, ReportsEveryRobotInAWindowThatOpensBeforeAnyIsMatched) {
  const LocalRobot a("a"), b("b"), c("c");
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  ASSERT_TRUE(sdk->discoverRobotDevice(kLimitMs));
  EXPECT_TRUE(waitUntil([&] { return sdk.answers().size() == 3; })) << sdk.answers().size();
}

TEST(Discovery, ReportsARobotThatStartsDuringTheWindowAShorterOneChangesNothing) {
  const LocalRobot early("early");
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  ASSERT_TRUE(sdk->discoverRobotDevice(kLimitMs));
  ASSERT_TRUE(sdk->discoverRobotDevice(1));
  ASSERT_TRUE(waitUntil([&] { return sdk.hasAnswered("early"); }));
  const LocalRobot late("late");
  EXPECT_TRUE(waitUntil([&] { return sdk.hasAnswered("late"); }));
}

TEST(Discovery, DeliversEachAnswerOnceAfterARestartOfTheService) {
  const LocalRobot a("a"), b("b");
  for (int round = 0; round < 3; ++round) {
    const Sdk sdk;
    ASSERT_TRUE(sdk.initialised());
    ASSERT_TRUE(sdk->discoverRobotDevice(kLimitMs));
    ASSERT_TRUE(waitUntil([&] { return sdk.hasAnswered("a") && sdk.hasAnswered("b"); }));
    // Answers are delivered in order, so a second delivery would come before this one's.
    const LocalRobot last("last");
    ASSERT_TRUE(waitUntil([&] { return sdk.hasAnswered("last"); }));
    const std::map<std::string, int> once{{"a", 1}, {"b", 1}, {"last", 1}};
    EXPECT_EQ(sdk.answers(), once) << "round " << round;
  }
}

TEST(Service, RegistersTheLogSinkOnceWhenAGoodInitialFollowsAFailedOne) {
  const auto initialised = std::make_shared<std::atomic<int>>(0);
  auto* service = IMotionSdkService::instance();
  service->setNetworkInterface("lo");
  service->attachLoggerCallback([initialised](std::uint32_t, const char* text, int length) {
    const std::string line(text, static_cast<std::size_t>(length));
    if (line.find("motion sdk initialized") != std::string::npos) ++*initialised;
  });
  EXPECT_FALSE(service->initial("/no/such/file", "sdkTest", 0));
  EXPECT_TRUE(service->initial(nullptr, "sdkTest", 0));
  service->shutdown();
  EXPECT_EQ(initialised->load(), 1);
}

}  // namespace
}  // namespace sdk_test
