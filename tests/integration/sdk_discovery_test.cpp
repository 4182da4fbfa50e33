// Discovery of virtual robots over DDS.

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace sdk_test
