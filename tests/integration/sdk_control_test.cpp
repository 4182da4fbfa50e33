// The whole path from an application to a robot and back: control, motion, observed state.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedSensorRecord;

class Control : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(sdk_.initialised()); }

  const LocalRobot robot_{"dog"};
  const Sdk sdk_;
};

/// Walks ahead until the robot is `metres` from where it was made. False: refused, or not there in
/// time.
bool walkAhead(const LocalRobot& robot, const Client& client, float speed, double metres) {
  bool accepted = true;
  const bool arrived = waitUntil([&] {
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
  ASSERT_TRUE(robot_.reaches(Posture::kStanding));
  ASSERT_TRUE(walkAhead(robot_, client, 0.5F, 0.3));
  // Nobody refreshes the walk any more, so it ends by itself.
  EXPECT_TRUE(robot_.reaches(Posture::kStanding));
  ASSERT_TRUE(client->laying(kRequestMs)) << client->getLastError();
  EXPECT_TRUE(robot_.reaches(Posture::kLying));
  ASSERT_TRUE(client->releaseMotionControl());
  EXPECT_TRUE(waitUntil([&] { return client.seen->reported({1, 0}); }));
  EXPECT_TRUE(waitUntil([&] { return robot_.status().controller.empty(); }));
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
  ASSERT_TRUE(robot_.reaches(Posture::kStanding));
  ASSERT_TRUE(walkAhead(robot_, client, 0.5F, 0.5));
  ASSERT_TRUE(robot_.reaches(Posture::kStanding));

  // The newest sample arrives when the robot stands again.
  const auto there = robot_.status().position;
  ASSERT_TRUE(waitUntil([&] {
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

/// What a robot does to its controller, and what its client says of that.
struct Loss {
  const char* name;
  std::vector<std::string> faults;
  std::uint32_t leaseMs;
  std::vector<Seen::State> states;
};

TEST_F(Control, EveryWayToLoseItIsToldOnceAndEndsTheRightToCommand) {
  const Loss losses[] = {
      {"restored", {"preempt", "restore", "revoke"}, 60000, {{1, 5}, {kInControl, 0}, {1, 5}}},
      {"preempted", {"preempt", "revoke"}, 60000, {{1, 5}}},
      {"revoked", {"revoke"}, 60000, {{1, 5}}},
      {"expired", {"expire"}, 60000, {{1, 5}}},
      {"renewal-revoked", {"refuse renewMotionControl 1 errno 29"}, 2000, {{1, 5}}},
      {"renewal-expired", {"refuse renewMotionControl 1 errno 62"}, 2000, {{1, 4}}},
      {"silent", {"silent"}, 2000, {{1, 4}}},
  };
  std::vector<std::unique_ptr<LocalRobot>> robots;
  std::vector<Client> clients;
  for (const Loss& loss : losses) {
    robots.push_back(std::make_unique<LocalRobot>(loss.name));
    clients.push_back(connectTo(loss.name, loss.leaseMs));
    ASSERT_TRUE(clients.back().handle && clients.back()->takeMotionControl(20000));
  }
  for (const Client& client : clients) {
    ASSERT_TRUE(waitUntil([&] { return client.seen->reported({kInControl, 0}); }));
    client.seen->forgetStates();
  }
  for (std::size_t i = 0; i < clients.size(); ++i) {
    SCOPED_TRACE(losses[i].name);
    const Client& client = clients[i];
    for (std::size_t step = 0; step < losses[i].faults.size(); ++step) {
      ASSERT_TRUE(robots[i]->suffers(losses[i].faults[step]));
      if (step >= losses[i].states.size()) continue;  // means nothing to the client any more
      ASSERT_TRUE(waitUntil([&] { return client.seen->states().size() == step + 1; }));
      const bool controls = losses[i].states[step].first == kInControl;
      EXPECT_EQ(client->getLastError(), losses[i].states[step].second);
      EXPECT_EQ(client->standing(kRequestMs), controls);
      EXPECT_EQ(client->getLastError(), controls ? 0U : 7U);
    }
  }
  // All that there is to tell has been told when those that can have control again.
  const std::size_t silent = clients.size() - 1;
  for (std::size_t i = 0; i < silent; ++i) ASSERT_TRUE(clients[i]->takeMotionControl(20000));
  for (std::size_t i = 0; i < silent; ++i) {
    SCOPED_TRACE(losses[i].name);
    ASSERT_TRUE(waitUntil([&] { return clients[i].seen->states().back().first == kInControl; }));
    EXPECT_TRUE(clients[i]->standing(kRequestMs)) << clients[i]->getLastError();
    auto states = clients[i].seen->states();
    states.pop_back();
    EXPECT_EQ(states, losses[i].states);
  }
  EXPECT_EQ(clients[silent].seen->states(), losses[silent].states);
}

TEST_F(Control, TwoClientsHoldWalkAndObserveTwoRobotsAtOnce) {
  const LocalRobot other("cat");
  struct Pair {
    const LocalRobot& robot;
    Client client;
    float direction;
  };
  const Pair pairs[] = {{robot_, connectTo("dog"), 1}, {other, connectTo("cat"), -1}};
  for (const Pair& pair : pairs) {
    ASSERT_TRUE(pair.client.handle && enableStreams(pair.client));
    ASSERT_TRUE(pair.client->takeMotionControl(20000));
  }
  for (const Pair& pair : pairs) {
    ASSERT_TRUE(waitUntil([&] { return pair.client->getState() == kInControl; }));
    ASSERT_TRUE(pair.client->standing(kRequestMs));
  }
  for (const Pair& pair : pairs) ASSERT_TRUE(pair.robot.reaches(Posture::kStanding));
  ASSERT_TRUE(waitUntil([&] {
    return std::all_of(std::begin(pairs), std::end(pairs), [](const Pair& pair) {
      EXPECT_TRUE(pair.client->velocityMove(0.5F * pair.direction, 0, 0, kRequestMs));
      return pair.robot.status().position[0] * pair.direction > 0.3;
    });
  }));
  // What becomes of one robot's control means nothing to the other's client.
  ASSERT_TRUE(robot_.suffers("revoke"));
  EXPECT_TRUE(waitUntil([&] { return pairs[0].client.seen->reported({1, 5}); }));
  ASSERT_TRUE(pairs[1].client->velocityMove(-0.5F, 0, 0, kRequestMs));
  EXPECT_TRUE(robot_.reaches(Posture::kStanding));
  for (const Pair& pair : pairs) {
    const auto there = static_cast<float>(pair.robot.status().position[0]);
    std::vector<ObservedSensorRecord> sensor;
    ASSERT_TRUE(waitUntil([&] {
      sensor = pair.client.seen->sensor();
      return !sensor.empty() && std::abs(sensor.back().odom.position[0]) >= std::abs(there);
    }));
    // Each client has heard of its own robot only: it went one way.
    EXPECT_TRUE(std::is_sorted(sensor.begin(), sensor.end(), [&](const auto& a, const auto& b) {
      return (a.odom.position[0] - b.odom.position[0]) * pair.direction < -0.001F;
    }));
    EXPECT_GT(pair.client.seen->motion().size(), 100U);
  }
  EXPECT_EQ(stateText(pairs[1].client, ".deviceNo"), "cat");
  EXPECT_EQ(pairs[1].client.seen->states(), (std::vector<Seen::State>{{kInControl, 0}}));
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
