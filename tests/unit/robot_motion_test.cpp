// What the robot does when it is told to: every action in every posture, and the rules that keep it
// safe.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "body/KinematicBody.h"
#include "body/LegKinematics.h"
#include "motion/MotionController.h"

namespace orvane::robot {
namespace {

constexpr Twist kFullSpeed{kForwardSpeed.upper, kSidewaysSpeed.upper, kYawSpeed.upper};

struct Robot {
  MotionController motion;
  KinematicBody body;
  std::uint64_t nowUs = 5'000'000;

  std::optional<Refusal> start(Action action, const Twist& velocity = {}) {
    return motion.start(action, velocity, nowUs / 1000);
  }
  void step() {
    nowUs += 2000;
    body.step(motion.step(body.state(), nowUs / 1000), 0.002);
  }
  void run(double seconds) {
    for (int left = static_cast<int>(seconds * 500); left > 0; --left) step();
  }
  /// This body can't fall; one that has would say so.
  void tip() {
    BodyState tipped = body.state();
    tipped.fallen = true;
    tipped.down = false;
    static_cast<void>(motion.step(tipped, nowUs / 1000));
  }
  /// False: not reached within `seconds`.
  bool runUntil(Posture posture, double seconds) {
    for (int left = static_cast<int>(seconds * 500); left > 0; --left) {
      if (motion.posture() == posture) return true;
      step();
    }
    return motion.posture() == posture;
  }
  void keepWalking(const Twist& velocity, double seconds) {
    for (double passed = 0; passed < seconds; passed += 0.1) {
      ASSERT_FALSE(start(Action::kWalking, velocity));
      run(0.1);
    }
  }
  [[nodiscard]] double speed() const {
    const Twist& v = body.state().velocity;
    return std::abs(v.x) + std::abs(v.y) + std::abs(v.yaw);
  }
};

void makeStanding(Robot& robot) {
  ASSERT_FALSE(robot.start(Action::kStanding));
  ASSERT_TRUE(robot.runUntil(Posture::kStanding, 5));
}

void bringTo(Robot& robot, Posture posture) {
  struct Way {
    bool standing;
    bool walking;
    std::optional<Action> last;
  };
  static const Way kWays[kPostures] = {{false, false, {}},
                                       {false, false, Action::kStanding},
                                       {true, false, {}},
                                       {true, true, {}},
                                       {true, true, Action::kStop},
                                       {true, false, Action::kLaying},
                                       {false, false, Action::kRecoveryStand},
                                       {true, false, Action::kDisable},
                                       {true, false, Action::kEmergencyStop},
                                       {true, false, {}},
                                       {true, false, {}}};
  const Way& way = kWays[static_cast<std::size_t>(posture)];
  if (way.standing) makeStanding(robot);
  if (way.walking) robot.keepWalking(kFullSpeed, 1);
  if (way.last) {
    ASSERT_FALSE(robot.start(*way.last));
  }
  if (posture == Posture::kLowLevel) robot.motion.enterLowLevel();
  if (posture == Posture::kFallen) robot.tip();
  ASSERT_EQ(robot.motion.posture(), posture);
}

// Columns: standing, laying, recoveryStand, disableAction, walking, stop, emergency stop. A
// posture's initial is what follows: L lying, U standing up, S standing, W walking, B stopping, D
// lying down, R recovering, d damped, E emergency stop, F fallen, - refused.
struct Row {
  Posture posture;
  const char* next;
};
constexpr Row kRows[kPostures] = {
    {Posture::kLying, "ULRd-LE"},         {Posture::kStandingUp, "UDUd-UE"},
    {Posture::kStanding, "SDSdWSE"},      {Posture::kWalking, "BBBdWBE"},
    {Posture::kStopping, "BBBdWBE"},      {Posture::kLyingDown, "UDUd-DE"},
    {Posture::kRecovering, "RDRd-RE"},    {Posture::kDamped, "UdRd-dE"},
    {Posture::kEmergencyStop, "--RE-EE"}, {Posture::kLowLevel, "------E"},
    {Posture::kFallen, "--RF-FE"},
};

char initialOf(Posture posture) {
  return "LUSWBDRdElF"[static_cast<int>(posture)];
}

TEST(Motion, knowsWhatIsPossibleInEveryPosture) {
  for (const Row& row : kRows) {
    for (std::size_t action = 0; action < kActions; ++action) {
      SCOPED_TRACE(std::string(nameOf(row.posture)) + ", action " + std::to_string(action));
      Robot robot;
      bringTo(robot, row.posture);
      const auto refusal = robot.start(static_cast<Action>(action), kFullSpeed);
      if (row.next[action] == '-') {
        ASSERT_TRUE(refusal);
        EXPECT_EQ(refusal->reason, Reason::kNotNow);
        EXPECT_FALSE(refusal->text.empty());
        EXPECT_EQ(robot.motion.posture(), row.posture);
      } else {
        EXPECT_FALSE(refusal);
        EXPECT_EQ(initialOf(robot.motion.posture()), row.next[action]);
      }
    }
  }
}

TEST(Motion, everyPostureEndsWhereItShouldByItself) {
  const std::pair<Posture, Posture> cases[] = {
      {Posture::kStandingUp, Posture::kStanding}, {Posture::kWalking, Posture::kStanding},
      {Posture::kStopping, Posture::kStanding},   {Posture::kLyingDown, Posture::kLying},
      {Posture::kRecovering, Posture::kStanding}, {Posture::kDamped, Posture::kLying},
      {Posture::kFallen, Posture::kLying}};
  for (const auto& [from, to] : cases) {
    SCOPED_TRACE(nameOf(from));
    Robot robot;
    bringTo(robot, from);
    EXPECT_TRUE(robot.runUntil(to, 8));
  }
}

TEST(Motion, walkGoesOnWhileItIsRefreshedAndStandsStillWithinASecondAfter) {
  Robot robot;
  makeStanding(robot);
  robot.keepWalking({0.5, 0, 0}, 5);
  EXPECT_EQ(robot.motion.posture(), Posture::kWalking);
  EXPECT_NEAR(robot.body.state().velocity.x, 0.5, 1e-6);
  robot.keepWalking(kFullSpeed, 1);
  ASSERT_FALSE(robot.start(Action::kWalking, kFullSpeed));
  robot.run(0.6);
  EXPECT_GT(robot.speed(), 2.5) << "a command must hold for a while";
  robot.run(0.4);
  EXPECT_LT(robot.speed(), 0.02);
}

TEST(Motion, lossOfTheControllerStopsAWalkAndNothingElse) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(nameOf(row.posture));
    Robot robot;
    bringTo(robot, row.posture);
    robot.motion.endMotion();
    EXPECT_EQ(robot.motion.posture(),
              row.posture == Posture::kWalking ? Posture::kStopping : row.posture);
  }
}

TEST(Motion, layingWhileWalkingStopsFirstAndIsForgottenWhenTheWalkGoesOn) {
  Robot robot;
  bringTo(robot, Posture::kWalking);
  ASSERT_FALSE(robot.start(Action::kLaying));
  ASSERT_FALSE(robot.start(Action::kWalking, kFullSpeed));
  ASSERT_FALSE(robot.start(Action::kStop));
  ASSERT_TRUE(robot.runUntil(Posture::kStanding, 2));
  robot.keepWalking(kFullSpeed, 1);
  ASSERT_FALSE(robot.start(Action::kLaying));
  ASSERT_TRUE(robot.runUntil(Posture::kLyingDown, 1));
  EXPECT_LT(robot.speed(), 0.02);
  EXPECT_TRUE(robot.runUntil(Posture::kLying, 5));
}

TEST(Motion, aRecoveryThatDoesntGetItUpEndsFallenAndMayBeTriedAgain) {
  Robot robot;
  bringTo(robot, Posture::kFallen);
  ASSERT_FALSE(robot.start(Action::kRecoveryStand));
  for (int left = 19; left > 0; --left, robot.nowUs += 1'000'000) {
    robot.tip();
    ASSERT_EQ(robot.motion.posture(), Posture::kRecovering);
  }
  robot.nowUs += 2'000'000;
  robot.tip();
  EXPECT_EQ(robot.motion.posture(), Posture::kFallen);
  ASSERT_FALSE(robot.start(Action::kRecoveryStand));
  EXPECT_TRUE(robot.runUntil(Posture::kStanding, 8));
}

TEST(Motion, emergencyStopSinksAndStaysDown) {
  Robot robot;
  bringTo(robot, Posture::kWalking);
  ASSERT_FALSE(robot.start(Action::kEmergencyStop));
  robot.run(0.5);
  EXPECT_LT(robot.speed(), 0.02);
  robot.run(20);
  EXPECT_TRUE(robot.motion.emergencyStopped());
  EXPECT_FALSE(robot.body.state().powered);
  EXPECT_NEAR(robot.body.state().height, kLyingHeight, 0.005);
}

TEST(Motion, motorsStayOffBehindALowLevelSessionUntilTheRobotIsToldOtherwise) {
  for (const Action action : {Action::kStanding, Action::kLaying, Action::kRecoveryStand}) {
    Robot robot;
    bringTo(robot, Posture::kLowLevel);
    robot.motion.leaveLowLevel(true);
    robot.run(1);
    robot.tip();
    ASSERT_EQ(robot.motion.posture(), Posture::kFallen) << "standing up is refused there";
    ASSERT_FALSE(robot.start(Action::kDisable));
    robot.run(5);
    EXPECT_EQ(robot.motion.posture(), Posture::kDamped);
    EXPECT_FALSE(robot.body.state().powered);
    ASSERT_FALSE(robot.start(action));
    EXPECT_TRUE(
        robot.runUntil(action == Action::kLaying ? Posture::kLying : Posture::kStanding, 8));
  }
}

TEST(Motion, bodyHeightIsFollowed) {
  Robot robot;
  makeStanding(robot);
  robot.motion.setBodyHeight(kBodyHeight.lower);
  robot.run(3);
  EXPECT_NEAR(robot.body.state().height, kBodyHeight.lower, 0.005);
  EXPECT_EQ(robot.motion.posture(), Posture::kStanding);
}

}  // namespace
}  // namespace orvane::robot
