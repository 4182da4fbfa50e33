// A robot with weight, in lock-step: as fast as it goes, and the same each time. Judged by where
// the body truly is, which its controller never sees.

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "body/LegKinematics.h"
#include "locomotion/Attitude.h"
#include "motion/MotionController.h"
#include "physics/PhysicsBody.h"

namespace orvane::robot {
namespace {

constexpr double kStep = 0.002;  // s, as the control loop's
constexpr std::uint64_t kRefreshMs = 200;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint32_t kFirstSeed = 1;  // 0 has no noise, and is as drawn
constexpr std::uint32_t kSeeds = 1;
#else
constexpr std::uint32_t kFirstSeed = 0;
constexpr std::uint32_t kSeeds = 4;
#endif

/// Motion controller and body, with a clock of their own.
class Robot {
 public:
  explicit Robot(std::uint32_t seed) : body_(100, Variation::ofSeed(seed)) {}

  void pass(double seconds) {
    for (int left = static_cast<int>(seconds / kStep + 0.5); left > 0; --left) {
      nowUs_ += static_cast<std::uint64_t>(kStep * 1e6);
      body_.step(motion_.step(body_.state(), nowUs_ / 1000), kStep);
    }
  }

  [[nodiscard]] bool start(Action action, const Twist& velocity = {}) {
    return !motion_.start(action, velocity, nowUs_ / 1000);
  }

  /// False: not within `seconds`.
  [[nodiscard]] bool reaches(Posture posture, double seconds) {
    for (; seconds > 0 && motion_.posture() != posture; seconds -= 0.02) pass(0.02);
    return motion_.posture() == posture;
  }

  [[nodiscard]] bool standsUp() {
    return start(Action::kStanding) && reaches(Posture::kStanding, 5);
  }

  /// Walks, refreshing the command; what the body's mean velocity truly was, in its own frame.
  Twist walk(const Twist& velocity, double seconds) {
    Twist mean;
    Vector3 euler = trueEuler();
    for (int step = 0; step < static_cast<int>(seconds / kStep); ++step) {
      if (step * kStep * 1000 >= refreshes_ * static_cast<double>(kRefreshMs)) {
        ++refreshes_;
        EXPECT_TRUE(start(Action::kWalking, velocity));
      }
      pass(kStep);
      const TruePose pose = body_.world().pose();
      const Vector3 now = trueEuler();
      const double cosine = std::cos(now[2]), sine = std::sin(now[2]);
      mean.x += (cosine * pose.velocity[0] + sine * pose.velocity[1]) * kStep / seconds;
      mean.y += (-sine * pose.velocity[0] + cosine * pose.velocity[1]) * kStep / seconds;
      mean.yaw += std::remainder(now[2] - euler[2], 2 * M_PI) / seconds;
      euler = now;
    }
    refreshes_ = 0;
    return mean;
  }

  /// Over the ground, m/s.
  [[nodiscard]] double trueSpeed() {
    const Vector3 velocity = body_.world().pose().velocity;
    return std::hypot(velocity[0], velocity[1]);
  }
  /// As seen from where it was made.
  [[nodiscard]] std::array<double, 2> truePlace() {
    const Vector3 place = body_.world().pose().position;
    return {std::cos(firstYaw_) * place[0] + std::sin(firstYaw_) * place[1],
            -std::sin(firstYaw_) * place[0] + std::cos(firstYaw_) * place[1]};
  }
  [[nodiscard]] Vector3 trueEuler() { return eulerOf(body_.world().pose().quaternion); }
  [[nodiscard]] bool trulyStands() {
    const Vector3 euler = trueEuler();
    const double height = body_.world().pose().position[2];
    return std::abs(euler[0]) < 0.1 && std::abs(euler[1]) < 0.1 &&
           std::abs(height - kBodyHeight.initial) < 0.02;
  }

  MotionController& motion() { return motion_; }
  PhysicsBody& body() { return body_; }

 private:
  PhysicsBody body_;
  MotionController motion_;
  std::uint64_t nowUs_ = 1'000'000;
  int refreshes_ = 0;
  double firstYaw_ = trueEuler()[2];
};

/// Within a fifth of what was asked for; where nothing was, within 5 cm/s or rad/s.
void expectAbout(double mean, double asked) {
  EXPECT_NEAR(mean, asked, asked == 0 ? 0.05 : 0.2 * std::abs(asked));
}

class OfEachSeed : public testing::TestWithParam<std::uint32_t> {};

TEST_P(OfEachSeed, StandsUpWalksAsAskedStopsAndLiesDown) {
  for (const Twist& velocity : {Twist{0.4, 0, 0}, Twist{0, 0.2, 0}, Twist{0, 0, 0.8},
                                Twist{-0.3, 0, 0}, Twist{0.3, 0.1, 0.5}}) {
    SCOPED_TRACE(testing::Message() << velocity.x << " " << velocity.y << " " << velocity.yaw);
    Robot robot(GetParam());
    ASSERT_TRUE(robot.standsUp());
    EXPECT_TRUE(robot.trulyStands());
    static_cast<void>(robot.walk(velocity, 2));
    const Twist before = {robot.body().state().position[0], robot.body().state().position[1], 0};
    const auto from = robot.truePlace();
    const Twist mean = robot.walk(velocity, 58);
    ASSERT_EQ(robot.motion().posture(), Posture::kWalking) << "it fell";
    expectAbout(mean.x, velocity.x);
    expectAbout(mean.y, velocity.y);
    expectAbout(mean.yaw, velocity.yaw);
    // Odometry drifts, but not more than a tenth of the way (or of a metre).
    const auto to = robot.truePlace();
    const double way = 58 * std::hypot(velocity.x, velocity.y);
    EXPECT_NEAR(robot.body().state().position[0] - before.x, to[0] - from[0],
                0.1 * std::max(way, 10.0));
    EXPECT_NEAR(robot.body().state().position[1] - before.y, to[1] - from[1],
                0.1 * std::max(way, 10.0));
    ASSERT_TRUE(robot.reaches(Posture::kStanding, 4)) << "an unrefreshed walk stops";
    EXPECT_TRUE(robot.trulyStands());
    ASSERT_TRUE(robot.start(Action::kLaying));
    ASSERT_TRUE(robot.reaches(Posture::kLying, 4));
    EXPECT_LT(robot.body().world().pose().position[2], kLyingHeight + 0.03);
  }
}

TEST_P(OfEachSeed, StopsWhenItsWalkIsntRefreshedOrItsControllerIsGone) {
  for (const Twist& velocity : {Twist{0.4, 0, 0}, Twist{1, 0, 0}, Twist{-0.8, 0, 0}}) {
    SCOPED_TRACE(velocity.x);
    Robot robot(GetParam());
    ASSERT_TRUE(robot.standsUp());
    static_cast<void>(robot.walk(velocity, 3));
    ASSERT_TRUE(robot.start(Action::kWalking, velocity));
    robot.pass(0.6);
    EXPECT_GT(robot.trueSpeed(), 0.7 * std::abs(velocity.x)) << "a command must hold for a while";
    robot.pass(0.4);
    EXPECT_LT(robot.trueSpeed(), velocity.x > -0.5 ? 0.2 : 0.5);
    ASSERT_TRUE(robot.reaches(Posture::kStanding, 1));
    EXPECT_TRUE(robot.trulyStands());
  }
  Robot robot(GetParam());
  ASSERT_TRUE(robot.standsUp());
  static_cast<void>(robot.walk({0.4, 0, 0}, 2));
  robot.motion().endMotion();
  robot.pass(0.5);
  EXPECT_LT(robot.trueSpeed(), 0.1);
  ASSERT_TRUE(robot.reaches(Posture::kStanding, 1));
  static_cast<void>(robot.walk({0.4, 0, 0}, 2));
  ASSERT_TRUE(robot.start(Action::kEmergencyStop));
  robot.pass(3);
  EXPECT_LT(robot.body().world().pose().position[2], kLyingHeight + 0.05);
  EXPECT_LT(robot.trueSpeed(), 0.02);
  ASSERT_TRUE(robot.start(Action::kRecoveryStand));
  ASSERT_TRUE(robot.reaches(Posture::kStanding, 20));
  robot.pass(0.5);
  EXPECT_TRUE(robot.trulyStands());
}

TEST_P(OfEachSeed, StaysUpAtTheCornersOfWhatItMayBeAskedFor) {
  struct Corner {
    Twist velocity;
    double bodyHeight, stepHeight;
  };
  const double forward = kForwardSpeed.upper, back = kForwardSpeed.lower;
  const double aside = kSidewaysSpeed.upper, turn = kYawSpeed.upper;
  for (const auto& [velocity, bodyHeight, stepHeight] :
       {Corner{{forward, aside, turn}, kBodyHeight.upper, kStepHeight.upper},
        Corner{{forward, -aside, -turn}, kBodyHeight.lower, kStepHeight.lower},
        Corner{{back, aside, turn}, kBodyHeight.upper, kStepHeight.lower},
        Corner{{back, -aside, turn}, kBodyHeight.lower, kStepHeight.upper}}) {
    SCOPED_TRACE(testing::Message() << velocity.x << " " << velocity.y << " " << bodyHeight);
    Robot robot(GetParam());
    robot.motion().setBodyHeight(bodyHeight);
    robot.motion().setStepHeight(stepHeight);
    ASSERT_TRUE(robot.standsUp());
    static_cast<void>(robot.walk(velocity, 10));
    ASSERT_EQ(robot.motion().posture(), Posture::kWalking) << "it fell";
    ASSERT_TRUE(robot.reaches(Posture::kStanding, 3));
  }
}

TEST_P(OfEachSeed, StaysUpWhenPushed) {
  for (const double direction : {0.0, 0.5, 1.0, 1.5}) {
    Robot robot(GetParam());
    ASSERT_TRUE(robot.standsUp());
    const double angle = direction * M_PI;
    robot.body().world().push({30 * std::cos(angle), 30 * std::sin(angle), 0}, 0.1);
    robot.pass(3);
    EXPECT_EQ(robot.motion().posture(), Posture::kStanding);
    EXPECT_TRUE(robot.trulyStands()) << "pushed to " << direction << " pi";
  }
}

TEST_P(OfEachSeed, GetsUpFromAnyFall) {
  for (const double roll : {0.0, M_PI / 2, -M_PI / 2, M_PI}) {
    SCOPED_TRACE(roll);
    Robot robot(GetParam());
    TruePose pose;
    pose.position = {0, 0, 0.2};
    pose.quaternion = {std::cos(roll / 2), std::sin(roll / 2), 0, 0};
    std::array<double, kJoints> angles{};
    for (std::size_t leg = 0; leg < kLegs; ++leg) {
      angles[leg * kJointsPerLeg + 1] = 0.8;
      angles[leg * kJointsPerLeg + 2] = -1.5;
    }
    ASSERT_TRUE(robot.start(Action::kDisable));
    robot.body().world().place(pose, angles);
    robot.pass(1.5);
    if (roll == 0) {
      EXPECT_EQ(robot.motion().posture(), Posture::kLying);
    } else {
      ASSERT_EQ(robot.motion().posture(), Posture::kFallen);
      EXPECT_FALSE(robot.start(Action::kStanding));
      EXPECT_FALSE(robot.start(Action::kWalking, {0.2, 0, 0}));
    }
    ASSERT_TRUE(robot.start(Action::kRecoveryStand));
    ASSERT_TRUE(robot.reaches(Posture::kStanding, 20));
    robot.pass(1);
    EXPECT_TRUE(robot.trulyStands());
  }
}

INSTANTIATE_TEST_SUITE_P(Robots, OfEachSeed, testing::Range(kFirstSeed, kFirstSeed + kSeeds));

TEST(PhysicsBody, FallsUnderABlowAndSinksWhenItsMotorsOnlyDamp) {
  Robot robot(0);
  ASSERT_TRUE(robot.standsUp());
  ASSERT_TRUE(robot.start(Action::kEmergencyStop));
  robot.pass(3);
  EXPECT_LT(robot.body().world().pose().position[2], kLyingHeight + 0.05);
  EXPECT_FALSE(robot.start(Action::kStanding));
  ASSERT_TRUE(robot.start(Action::kRecoveryStand));
  ASSERT_TRUE(robot.reaches(Posture::kStanding, 10));
  // Off in the middle of a step it sinks onto legs that don't stand as they should.
  static_cast<void>(robot.walk({0, 0.3, 1}, 2));
  ASSERT_TRUE(robot.start(Action::kDisable));
  ASSERT_TRUE(robot.reaches(Posture::kLying, 5));
  ASSERT_TRUE(robot.standsUp());
  EXPECT_TRUE(robot.trulyStands());
  robot.body().world().push({0, 400, 150}, 0.15);
  EXPECT_TRUE(robot.reaches(Posture::kFallen, 5))
      << "a blow that throws it over leaves it standing";
  robot.pass(1);
  ASSERT_TRUE(robot.start(Action::kRecoveryStand));
  ASSERT_TRUE(robot.reaches(Posture::kStanding, 20));
  robot.pass(1);
  EXPECT_TRUE(robot.trulyStands());
}

TEST(PhysicsBody, StandsWhenItSaysSoAndNotWhenItIsToldTo) {
  Robot robot(0);
  robot.body().world().push({0, 0, -400}, 3);
  ASSERT_TRUE(robot.start(Action::kStanding)) << "accepted: it lies, so it may try";
  for (double left = 3; left > 0; left -= 0.1) {
    robot.pass(0.1);
    ASSERT_EQ(robot.motion().posture(), Posture::kStandingUp);
  }
  EXPECT_FALSE(robot.trulyStands());
  ASSERT_TRUE(robot.reaches(Posture::kStanding, 5));
  EXPECT_TRUE(robot.trulyStands());
}

// A bad driver of its joints may leave it in any pose. The controller sees which, and gets it up.
TEST(PhysicsBody, GetsUpWhereverItsLegsWereLeft) {
  std::mt19937 random(5);
  const auto between = [&random](double low, double high) {
    return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
  };
  int fallen = 0;
  for (std::uint32_t seed = 0; seed < 3 * kSeeds; ++seed) {
    SCOPED_TRACE(seed);
    Robot robot(seed);
    const double roll = between(-0.4, 0.4);
    TruePose pose;
    pose.position = {0, 0, 0.35};
    pose.quaternion = {std::cos(roll / 2), std::sin(roll / 2), 0, 0};
    std::array<double, kJoints> angles{};
    for (std::size_t index = 0; index < kJoints; ++index) {
      const JointLimit& range = kJointLimits[index % kJointsPerLeg];
      angles[index] = between(range.lower, range.upper);
    }
    robot.body().world().place(pose, angles);
    robot.motion().enterLowLevel();
    robot.motion().leaveLowLevel(true);
    robot.pass(6);
    EXPECT_TRUE(robot.motion().settled()) << nameOf(robot.motion().posture());
    const bool fell = robot.motion().posture() == Posture::kFallen;
    fallen += fell ? 1 : 0;
    EXPECT_NE(robot.start(Action::kLaying), fell);
    ASSERT_TRUE(robot.start(Action::kRecoveryStand));
    EXPECT_NE(robot.start(Action::kLaying), fell) << "still";
    ASSERT_TRUE(robot.start(Action::kRecoveryStand));
    ASSERT_TRUE(robot.reaches(Posture::kStanding, 20)) << nameOf(robot.motion().posture());
    EXPECT_TRUE(robot.trulyStands());
  }
  EXPECT_GT(fallen, 0);
}

TEST(PhysicsBody, DoesTheSameForTheSameSeedAndAnotherForAnother) {
  const auto where = [](std::uint32_t seed) {
    Robot robot(seed);
    EXPECT_TRUE(robot.standsUp());
    static_cast<void>(robot.walk({0.3, 0.1, 0.3}, 3));
    return robot.body().world().pose().position;
  };
  EXPECT_EQ(where(3), where(3));
  EXPECT_NE(where(3), where(4));
}

// Commanded one by one the joints carry the body or don't: nothing else does.
TEST(PhysicsBody, StandsOnItsJointsAsLongAsTheyAreStiff) {
  Robot robot(0);
  ASSERT_TRUE(robot.standsUp());
  JointCommands joints;
  for (std::size_t index = 0; index < kJoints; ++index) {
    joints[index] = {robot.body().state().joints[index].position, 0, 200, 6, 0, 45};
  }
  BodyCommand command;
  command.powered = true;
  command.joints = &joints;
  const auto pass = [&](double seconds) {
    for (double left = seconds; left > 0; left -= kStep) robot.body().step(command, kStep);
  };
  pass(2);
  EXPECT_NEAR(robot.body().world().pose().position[2], kBodyHeight.initial, 0.03);
  // The stiffest gains that a driver takes stay stable.
  for (JointCommand& joint : joints) joint.kp = 1000, joint.kd = 100;
  pass(2);
  EXPECT_NEAR(robot.body().world().pose().position[2], kBodyHeight.initial, 0.03);
  for (JointCommand& joint : joints) joint = {0, 0, 0, 2, 0, 45};
  pass(2);
  EXPECT_LT(robot.body().world().pose().position[2], kLyingHeight + 0.05);
}

// Nothing that a driver sends upsets the physics. Should it happen, the robot goes on where it was.
TEST(PhysicsBody, KeepsItsSensesWhateverItsDriverDoes) {
  Robot robot(1);
  JointCommands joints;
  BodyCommand command;
  command.powered = true;
  command.joints = &joints;
  const auto drive = [&](double kp, double kd, double speed, double torque) {
    for (int step = 0; step < 5000; ++step) {
      for (std::size_t index = 0; index < kJoints; ++index) {
        const JointLimit& range = kJointLimits[index % kJointsPerLeg];
        const bool up = (step + static_cast<int>(index)) % 2 == 0;
        joints[index] = {up ? range.upper : range.lower, up ? speed : -speed, kp, kd,
                         up ? torque : -torque,          range.maxTorque};
      }
      robot.body().step(command, kStep);
      const BodyState& state = robot.body().state();
      bool finite = true;
      for (const JointState& joint : state.joints) {
        finite = finite && std::isfinite(joint.position + joint.velocity + joint.torque);
      }
      for (std::size_t axis = 0; axis < 3; ++axis) {
        finite = finite && std::isfinite(state.imu.accel[axis] + state.imu.gyro[axis] +
                                         state.position[axis] + state.worldVelocity[axis]);
      }
      ASSERT_TRUE(finite) << step;
    }
  };
  drive(1000, 100, 0, 0);
  drive(1000, 0, 20, 45);
  EXPECT_EQ(robot.body().world().upsets(), 0U);
  const Vector3 before = robot.body().world().pose().position;
  robot.body().world().push({0, 0, 1e13}, kStep);
  robot.body().step(command, kStep);
  EXPECT_GT(robot.body().world().upsets(), 0U);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(robot.body().world().pose().position[axis], before[axis], 0.1);
  }
}

}  // namespace
}  // namespace orvane::robot
