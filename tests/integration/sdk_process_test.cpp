// Real processes: how applications end, and what is left when a process dies or stands still.

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>

#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

constexpr std::uint32_t kExitMs = 15000;

class AnApplication : public testing::TestWithParam<const char*> {};

TEST_P(AnApplication, InControlEndsCleanly) {
  const LocalRobot robot("dog");
  Process application({SDK_CLIENT, GetParam(), "dog"});
  ASSERT_TRUE(application.says("in control", kLimitMs)) << application.output();
  const auto status = application.finish(kExitMs);
  ASSERT_TRUE(status.has_value()) << "hangs; said:\n" << application.output();
  EXPECT_EQ(*status, 0) << application.output();
}

INSTANTIATE_TEST_SUITE_P(Ends, AnApplication, testing::Values("return", "exit", "shutdown"),
                         [](const auto& scenario) { return std::string(scenario.param); });

TEST(AnApplicationThatReleases, LetsAnotherTakeControlAlthoughItLeavesAtOnce) {
  const LocalRobot robot("dog");
  Process application({SDK_CLIENT, "release", "dog"});
  ASSERT_TRUE(application.says("in control", kLimitMs)) << application.output();
  EXPECT_EQ(application.finish(kExitMs), 0) << application.output();
  EXPECT_TRUE(eventually([&] { return robot.status().controller.empty(); }, 2000));
}

TEST(AnApplicationThatStandsStill, LosesControlToAnotherWhenItsLeaseExpires) {
  const LocalRobot robot("dog");
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Process application({SDK_CLIENT, "hold", "dog", "1500"});
  ASSERT_TRUE(application.says("in control", kLimitMs)) << application.output();
  application.signal(SIGSTOP);
  const Client other = connectTo("dog");
  ASSERT_TRUE(other.handle);
  EXPECT_TRUE(takeControl(other));
  application.signal(SIGCONT);
  // It learns of that by the event or by its next renewal, whichever comes first.
  EXPECT_TRUE(eventually([&] {
    const std::string said = application.output();
    return said.find("state 1 4") != std::string::npos ||
           said.find("state 1 5") != std::string::npos;
  })) << application.output();
  application.signal(SIGTERM);
  EXPECT_EQ(application.finish(kExitMs), 0) << application.output();
  EXPECT_TRUE(other->standing(kRequestMs)) << other->getLastError();
}

TEST(ARobotThatDiesDuringARequest, EndsTheRequestByItsTimeOut) {
  Process robot({VIRTUAL_ROBOT, "--device-id", "dog", "--interface", "lo"});
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle);
  ASSERT_TRUE(eventually([&] { return stateText(client, ".deviceNo") == "dog"; }))
      << robot.output();
  // Standing still it can't answer; whether the request is out when the kill comes makes no
  // difference then, for a killed process takes no leave.
  robot.signal(SIGSTOP);
  std::thread killer([&] { robot.signal(SIGKILL); });
  constexpr std::uint32_t kTimeOutMs = 2000;
  const auto begun = Pexal::PBase::CTime::getCurrentMilliSecond();
  std::string state;
  EXPECT_FALSE(client->queryMotionState(&state, kTimeOutMs));
  const auto tookMs = Pexal::PBase::CTime::getCurrentMilliSecond() - begun;
  killer.join();
  EXPECT_LT(tookMs, kTimeOutMs + 1000);
  EXPECT_EQ(client->getLastError(), 3U);
  // Nothing that follows waits for the dead robot.
  const auto letGo = Pexal::PBase::CTime::getCurrentMilliSecond();
  EXPECT_TRUE(client->disconnect());
  EXPECT_LT(Pexal::PBase::CTime::getCurrentMilliSecond() - letGo, 3000U);
}

TEST(ARobotThatIsAskedToEnd, EndsCleanlyAndTellsItsController) {
  Process robot({VIRTUAL_ROBOT, "--device-id", "dog", "--interface", "lo"});
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle);
  ASSERT_TRUE(eventually([&] { return stateText(client, ".deviceNo") == "dog"; }))
      << robot.output();
  ASSERT_TRUE(takeControl(client));
  robot.signal(SIGTERM);
  EXPECT_TRUE(eventually([&] { return client.seen->reported({1, 5}); }));
  EXPECT_EQ(robot.finish(kExitMs), 0) << robot.output();
}

}  // namespace
}  // namespace sdk_test
