// The whole path from an application to a robot and back: control, motion, observed state.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using orvane::robot::Posture;
using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedSensorRecord;

class Control : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(sdk_.initialised()); }

  [[nodiscard]] bool reaches(Posture posture) const {
    return eventually([&] { return robot_.status().posture == posture; });
  }

  const LocalRobot robot_{"dog"};
  const Sdk sdk_;
};

/// Walks ahead until the robot is `metres` from where it was made. False: refused, or not there in
/// time.
bool walkAhead(const LocalRobot& robot, const Client& client, float speed, double metres) {
  bool accepted = true;
  const bool arrived = eventually([&] {
    accepted = accepted && client->velocityMove(speed, 0, 0, kRequestMs);
    const auto position = robot.status().position;
    return !accepted || std::hypot(position[0], position[1]) >= metres;
  });
  return accepted && arrived;
}

TEST_F(Control, TakesARobotWalksItAndGivesItBack) {
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle);
  EXPECT_FALSE(client->standing(kRequestMs));  // not in control yet
  EXPECT_EQ(client->getLastError(), 7U);
  ASSERT_TRUE(takeControl(client));
  EXPECT_EQ(stateText(client, ".control.controller"), robot_.status().controller);
  ASSERT_TRUE(client->standing(kRequestMs));
  ASSERT_TRUE(reaches(Posture::kStanding));
  ASSERT_TRUE(walkAhead(robot_, client, 0.5F, 0.3));
  // Nobody refreshes the walk any more, so it ends by itself.
  EXPECT_TRUE(reaches(Posture::kStanding));
  ASSERT_TRUE(client->laying(kRequestMs)) << client->getLastError();
  EXPECT_TRUE(reaches(Posture::kLying));
  ASSERT_TRUE(client->releaseMotionControl());
  EXPECT_TRUE(eventually([&] { return client.seen->reported({1, 0}); }));
  EXPECT_TRUE(eventually([&] { return robot_.status().controller.empty(); }));
  EXPECT_FALSE(client.seen->events().empty());  // the robot told of its changes of posture
}

/// Checks that each sample's odometry follows from the one before it.
void expectConsistent(const std::vector<ObservedSensorRecord>& samples) {
  for (std::size_t i = 1; i < samples.size(); ++i) {
    const auto& before = samples[i - 1].odom;
    const auto& now = samples[i].odom;
    ASSERT_EQ(now.valid, 1);
    const double step =
        std::hypot(now.position[0] - before.position[0], now.position[1] - before.position[1]);
    // 50 samples a second at 0.5 m/s are 1 cm apart; where some were missed, a multiple of that.
    EXPECT_LT(step, 0.5) << "sample " << i;
  }
}

TEST_F(Control, ObservedStateFollowsTheRobot) {
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle && takeControl(client));
  orvane::RobotSdk::ObservedSensorRecord newest{};
  EXPECT_FALSE(client->getSensorObserved(&newest, 10000));  // both streams are still off
  EXPECT_EQ(client->getLastError(), 8U);
  EXPECT_TRUE(client.seen->sensor().empty());
  ASSERT_TRUE(enableStreams(client));
  ASSERT_TRUE(client->standing(kRequestMs));
  ASSERT_TRUE(reaches(Posture::kStanding));
  ASSERT_TRUE(walkAhead(robot_, client, 0.5F, 0.5));
  ASSERT_TRUE(reaches(Posture::kStanding));

  // The newest sample arrives when the robot stands again.
  const auto there = robot_.status().position;
  ASSERT_TRUE(eventually([&] {
    return client->getSensorObserved(&newest, 1000) &&
           std::abs(newest.odom.position[0] - there[0]) < 0.01;
  }));
  EXPECT_NEAR(newest.odom.position[1], there[1], 0.01);
  expectConsistent(client.seen->sensor());
  const auto sensor = client.seen->sensor();
  EXPECT_TRUE(std::any_of(sensor.begin(), sensor.end(), [](const ObservedSensorRecord& record) {
    return std::abs(record.odom.velocity[0] - 0.5F) < 0.05F;
  }));

  const auto motion = client.seen->motion();
  ASSERT_FALSE(motion.empty());
  const ObservedMotionRecord& last = motion.back();
  EXPECT_EQ(last.valid, 1);
  EXPECT_EQ(std::int32_t{last.motorNum}, 12);
  const auto quaternion = last.imu.quaternion;
  EXPECT_NEAR(quaternion.w * quaternion.w + quaternion.x * quaternion.x +
                  quaternion.y * quaternion.y + quaternion.z * quaternion.z,
              1, 1e-3);
  EXPECT_NEAR(float{last.imu.accel.z}, 9.81F, 0.5F);
  EXPECT_NE(float{last.motor[2].position}, float{motion.front().motor[2].position});
  orvane::RobotSdk::ObservedPower power{};
  EXPECT_TRUE(client->getPowerObserved(&power, 10'000'000));
  EXPECT_GT(power.power, 90);
}

TEST_F(Control, HoldsALeaseMuchLongerThanItLasts) {
  const Client client = connectTo("dog", 1200);
  ASSERT_TRUE(client.handle && takeControl(client));
  const double leaseMs = stateNumber(client, ".control.leaseTimeout");
  ASSERT_GT(leaseMs, 0);
  ASSERT_LE(leaseMs, 3000);
  const double since = stateNumber(client, ".control.sinceMs");
  EXPECT_TRUE(
      eventually([&] { return stateNumber(client, ".control.untilMs") > since + 5 * leaseMs; }));
  EXPECT_EQ(client->getState(), kInControl);
  EXPECT_EQ(client.seen->states().size(), 1U);
}

TEST_F(Control, OfTwoClientsTheSecondGetsControlOnlyWhenTheFirstGivesItBack) {
  const Client first = connectTo("dog");
  const Client second = connectTo("dog");
  ASSERT_TRUE(first.handle && second.handle && takeControl(first));
  EXPECT_FALSE(takeControl(second, 3500));
  EXPECT_TRUE(second.seen->reported({1, 2}));
  EXPECT_EQ(second->getLastError(), 2U);
  EXPECT_EQ(first->getState(), kInControl);
  EXPECT_EQ(first.seen->states().size(), 1U);

  ASSERT_TRUE(second->takeMotionControl(20000));
  ASSERT_TRUE(first->releaseMotionControl());
  EXPECT_TRUE(eventually([&] { return second.seen->reported({kInControl, 0}); }));
  EXPECT_EQ(first->getState(), 1U);
}

TEST_F(Control, APreemptedClientGetsControlBackWhenTheRobotRestoresIt) {
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle && takeControl(client));
  ASSERT_TRUE(client->standing(kRequestMs));
  {
    auto robot = robot_.access();
    robot.arbiter().preempt("somebody else", 60000, robot.nowMs());
  }
  ASSERT_TRUE(eventually([&] { return client.seen->reported({1, 5}); }));
  EXPECT_FALSE(client->velocityMove(0.1F, 0, 0, kRequestMs));
  client.seen->forgetStates();
  {
    auto robot = robot_.access();
    ASSERT_TRUE(robot.arbiter().restore(robot.nowMs()));
  }
  ASSERT_TRUE(eventually([&] { return client.seen->reported({kInControl, 0}); }));
  EXPECT_TRUE(client->standing(kRequestMs)) << client->getLastError();
}

TEST_F(Control, ARevokedClientMayTakeControlAgain) {
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle && takeControl(client));
  {
    auto robot = robot_.access();
    ASSERT_TRUE(robot.arbiter().revoke(robot.nowMs()));
  }
  ASSERT_TRUE(eventually([&] { return client.seen->reported({1, 5}); }));
  EXPECT_TRUE(takeControl(client));
}

TEST_F(Control, EachOfTwoRobotsObeysAndTellsItsOwnClientOnly) {
  const LocalRobot other("cat");
  const Client dog = connectTo("dog");
  const Client cat = connectTo("cat");
  ASSERT_TRUE(dog.handle && cat.handle);
  ASSERT_TRUE(enableStreams(dog) && enableStreams(cat));
  ASSERT_TRUE(takeControl(cat) && takeControl(dog));
  ASSERT_TRUE(dog->standing(kRequestMs));
  ASSERT_TRUE(reaches(Posture::kStanding));
  ASSERT_TRUE(walkAhead(robot_, dog, 0.5F, 0.3));
  EXPECT_EQ(stateText(cat, ".deviceNo"), "cat");
  EXPECT_EQ(other.status().posture, Posture::kLying);

  // Events of the dog's mean nothing to the cat's client, its changes of control least of all.
  ASSERT_TRUE(dog->releaseMotionControl());
  ASSERT_TRUE(reaches(Posture::kStanding));  // the walk ended with control
  ASSERT_TRUE(cat->standing(kRequestMs)) << cat->getLastError();
  ASSERT_TRUE(eventually([&] { return other.status().posture == Posture::kStanding; }));
  EXPECT_EQ(cat->getState(), kInControl);
  EXPECT_EQ(cat.seen->states().size(), 1U);

  // Both robots publish on the same topics; each client hears its own.
  ASSERT_TRUE(eventually([&] { return !cat.seen->sensor().empty(); }));
  for (const auto& record : cat.seen->sensor()) ASSERT_EQ(record.odom.position[0], 0);
  const auto dogs = dog.seen->sensor();
  EXPECT_TRUE(std::is_sorted(dogs.begin(), dogs.end(), [](const auto& a, const auto& b) {
    return a.odom.position[0] < b.odom.position[0] - 0.02F;
  }));
}

TEST_F(Control, AnIdThatWouldBeAPatternIsJustAnIdThatNobodyHas) {
  const Client dog = connectTo("dog");
  ASSERT_TRUE(dog.handle);
  ASSERT_EQ(stateText(dog, ".deviceNo"), "dog");  // it can be reached
  for (const char* id : {"*", "d*", "do?", "d[o]g", "\"dog\"", "'dog'", "dog,dog", "dog ", " "}) {
    const Client client = connectTo(id);
    ASSERT_TRUE(client.handle) << id;
    std::string state;
    EXPECT_FALSE(client->queryMotionState(&state, 300)) << id;
    EXPECT_EQ(client->getLastError(), 3U) << id;
  }
}

}  // namespace
}  // namespace sdk_test
