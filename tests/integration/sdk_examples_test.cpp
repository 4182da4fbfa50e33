// The example programs as their users meet them: exit status and words, also when things go wrong.

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "Bodies.h"
#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

constexpr std::uint32_t kExitMs = 60000;

TEST(MinimalExample, WalksTheRobotAndLeavesItLyingAndFree) {
  const LocalRobot robot("dog");
  Process example({MINIMAL, "lo"});
  EXPECT_EQ(example.finish(kExitMs), 0) << example.output();
  const auto status = robot.status();
  EXPECT_GT(status.position[0], 0.3);
  EXPECT_EQ(status.posture, Posture::kLying);
  EXPECT_TRUE(waitUntil([&] { return robot.status().controller.empty(); }, 2000));
}

TEST(WalkSquare, StopsTheRobotAndGivesControlBackOnCtrlC) {
  const LocalRobot robot("dog");
  Process example({WALK_SQUARE, "--interface", "lo", "--device", "dog"});
  ASSERT_TRUE(robot.reaches(Posture::kWalking)) << example.output();
  example.signal(SIGINT);
  EXPECT_EQ(example.finish(kExitMs), 130) << example.output();
  EXPECT_TRUE(waitUntil([&] {
    const auto status = robot.status();
    return status.posture == Posture::kStanding && status.controller.empty();
  }));
}

TEST(WalkSquare, SaysThatControlWasLostAndWhy) {
  const LocalRobot robot("dog");
  Process example({WALK_SQUARE, "--interface", "lo"});
  ASSERT_TRUE(robot.reaches(Posture::kWalking)) << example.output();
  ASSERT_TRUE(robot.suffers("preempt"));
  EXPECT_EQ(example.finish(kExitMs), 1);
  EXPECT_NE(example.output().find("error 5 (control was revoked or taken by another controller)"),
            std::string::npos)
      << example.output();
}

TEST(WalkSquare, SaysThatNoRobotAnswered) {
  Process example({WALK_SQUARE, "--interface", "lo", "--device", "nobody", "--timeout", "1"});
  EXPECT_EQ(example.finish(kExitMs), 1);
  EXPECT_NE(example.output().find("robot nobody didn't answer within 1 s on interface lo"),
            std::string::npos)
      << example.output();
}

TEST(WalkSquare, RefusesWrongOptions) {
  for (const std::string wrong : {"--tiemout", "--timeout=3", "--timeout", "square"}) {
    Process example({WALK_SQUARE, wrong});
    EXPECT_EQ(example.finish(kExitMs), 2) << wrong << example.output();
    EXPECT_NE(example.output().find(wrong), std::string::npos) << example.output();
  }
}

TEST(JointTrace, LeavesTheRobotDampedAndFreeOnCtrlC) {
  const LocalRobot robot("dog");
  Process example({JOINT_TRACE, "--seconds", "600", "--output", testing::TempDir() + "no.svg"});
  ASSERT_TRUE(robot.reaches(Posture::kLowLevel)) << example.output();
  example.signal(SIGINT);
  EXPECT_EQ(example.finish(kExitMs), 130) << example.output();
  EXPECT_TRUE(waitUntil([&] {
    const auto status = robot.status();
    return status.posture == Posture::kDamped && !status.simulation.active;
  }));
}

TEST(JointTrace, SaysWhatItCouldNotDo) {
  struct Case {
    std::vector<std::string> options;
    int status;
    const char* words;
  };
  const Case kCases[] = {{{}, 1, "joint_trace: could not see a robot: is a simulator running?"},
                         {{"--interface", "nosuch0"}, 1, "joint_trace: could not "},
                         {{"--motor", "FL_knee"}, 1, "could not find that motor: FL, FR, RL or RR"},
                         {{"--seconds", "3x"}, 2, "joint_trace [--interface NAME]"},
                         {{"--seconds", "nan"}, 2, "joint_trace [--interface NAME]"},
                         {{"--motor"}, 2, "joint_trace [--interface NAME]"}};
  for (Case row : kCases) {
    row.options.insert(row.options.begin(), JOINT_TRACE);
    Process example(row.options);
    EXPECT_EQ(example.finish(kExitMs), row.status) << example.output();
    EXPECT_NE(example.output().find(row.words), std::string::npos) << example.output();
  }
}

class LowLevelStand : public testing::TestWithParam<BodyKind> {};
INSTANTIATE_TEST_SUITE_P(Body, LowLevelStand, testing::ValuesIn(orvane_test::bodies()),
                         orvane_test::nameOfParameter);

TEST_P(LowLevelStand, StandsUpAndLiesDownAgain) {
  const LocalRobot robot("dog", GetParam());
  Process example({LOW_LEVEL_STAND});
  ASSERT_TRUE(robot.reaches(Posture::kLowLevel)) << example.output();
  EXPECT_TRUE(waitUntil([&] { return robot.status().position[2] > 0.26; }, kLimitMs));
  EXPECT_EQ(example.finish(kExitMs), 0) << example.output();
  EXPECT_NE(example.output().find("It stands."), std::string::npos) << example.output();
  EXPECT_LT(robot.status().position[2], 0.15);
}

TEST_P(LowLevelStand, LowersTheRobotOnCtrlC) {
  const LocalRobot robot("dog", GetParam());
  Process example({LOW_LEVEL_STAND});
  ASSERT_TRUE(example.says("Holding", kLimitMs)) << example.output();
  example.signal(SIGINT);
  EXPECT_EQ(example.finish(kExitMs), 130) << example.output();
  EXPECT_LT(robot.status().position[2], 0.15);
}

/// A robot that doesn't carry out what it is told mustn't pass for one that stands.
TEST(LowLevelStandAlone, SaysWhatItCouldNotDo) {
  Process alone({LOW_LEVEL_STAND});
  EXPECT_EQ(alone.finish(kExitMs), 1) << alone.output();
  EXPECT_NE(alone.output().find("could not see a robot"), std::string::npos) << alone.output();
  const LocalRobot robot("dog");
  ASSERT_TRUE(robot.suffers("preempt"));
  Process refused({LOW_LEVEL_STAND});
  EXPECT_EQ(refused.finish(kExitMs), 1) << refused.output();
  EXPECT_NE(refused.output().find("low_level_stand: lost the motors: they don't follow"),
            std::string::npos)
      << refused.output();
}

TEST(LowLevelStandAlone, DoesNotTakeAFallenRobotForOneThatStands) {
  if (!orvane::robot::kHasPhysics) GTEST_SKIP() << "no body that can fall";
  const LocalRobot robot("dog", BodyKind::kPhysics);
  ASSERT_TRUE(robot.falls());
  Process example({LOW_LEVEL_STAND});
  EXPECT_EQ(example.finish(kExitMs), 1) << example.output();
  EXPECT_EQ(example.output().find("It stands."), std::string::npos) << example.output();
}

}  // namespace
}  // namespace sdk_test
