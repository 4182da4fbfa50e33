// The example programs as their users meet them: exit status and words, also when things go wrong.

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

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

}  // namespace
}  // namespace sdk_test
