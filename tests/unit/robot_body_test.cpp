// What the kinematic body shows must fit together: legs, gait, base, inertial unit, battery.

#include <gtest/gtest.h>

#include <cmath>

#include "body/KinematicBody.h"
#include "body/LegKinematics.h"
#include "motion/MotionLimits.h"

namespace orvane::robot {
namespace {

constexpr double kStep = 0.002;
constexpr double kGravity = 9.81;

BodyCommand standing() {
  BodyCommand command;
  command.powered = true;
  command.height = kBodyHeight.initial;
  command.stepHeight = kStepHeight.initial;
  return command;
}

BodyCommand walking(const Twist& velocity) {
  BodyCommand command = standing();
  command.stepping = true;
  command.velocity = velocity;
  return command;
}

void run(KinematicBody& body, const BodyCommand& command, double seconds) {
  for (int left = static_cast<int>(seconds / kStep); left > 0; --left) body.step(command, kStep);
}

const std::pair<const char*, Twist> kWalks[] = {{"forward", {1.0, 0, 0}},
                                                {"backward", {-0.8, 0, 0}},
                                                {"sideways", {0, 0.4, 0}},
                                                {"turn", {0, 0, 1.5}},
                                                {"everything", {1.0, -0.4, -1.5}}};

TEST(KinematicBody, everythingAgreesWhileItWalksAndStops) {
  for (const auto& [name, velocity] : kWalks) {
    SCOPED_TRACE(name);
    KinematicBody body;
    run(body, standing(), 4);
    Vector3 integrated = body.state().position;
    double yaw = body.state().yaw;
    auto angles = body.state().joints;
    double fastest = 0;
    for (int step = 0; step < 3000; ++step) {
      body.step(step < 2000 ? walking(velocity) : standing(), kStep);
      const BodyState& state = body.state();
      yaw += state.velocity.yaw * kStep;
      for (int axis = 0; axis < 3; ++axis) integrated[axis] += state.worldVelocity[axis] * kStep;

      ASSERT_NEAR(std::remainder(state.yaw - yaw, 2 * M_PI), 0, 1e-9);
      ASSERT_NEAR(state.position[0], integrated[0], 0.004);
      ASSERT_NEAR(state.position[1], integrated[1], 0.004);
      ASSERT_NEAR(state.imu.gyro[2], state.velocity.yaw, 0.02);
      const auto& q = state.imu.quaternion;
      ASSERT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1, 1e-12);
      ASSERT_NEAR(std::remainder(2 * std::atan2(q[3], q[0]) - state.yaw, 2 * M_PI), 0, 1e-3);
      ASSERT_LT(std::abs(state.imu.accel[2] - kGravity), 0.5);
      for (std::size_t i = 0; i < kJoints; ++i) {
        const JointLimit& limit = kJointLimits[i % kJointsPerLeg];
        const JointState& joint = state.joints[i];
        ASSERT_GE(joint.position, limit.lower);
        ASSERT_LE(joint.position, limit.upper);
        ASSERT_LE(std::abs(joint.torque), limit.maxTorque);
        ASSERT_NEAR(joint.velocity, (joint.position - angles[i].position) / kStep, 1e-9);
        fastest = std::max(fastest, std::abs(joint.velocity));
      }
      angles = state.joints;
    }
    EXPECT_GT(fastest, 1) << "the legs must move";
    EXPECT_LT(fastest, 25) << "the legs must not jump";
    EXPECT_EQ(body.state().velocity.x, 0);
    EXPECT_EQ(body.state().velocity.yaw, 0);
  }
}

TEST(KinematicBody, standingFeetDoNotSlideUnderAWalkingBody) {
  KinematicBody body;
  run(body, standing(), 4);
  run(body, walking({0.6, 0, 0}), 3);
  int compared = 0;
  for (int step = 0; step < 1000; ++step) {
    const BodyState before = body.state();
    body.step(walking({0.6, 0, 0}), kStep);
    const BodyState& after = body.state();
    for (std::size_t leg = 0; leg < kLegs; ++leg) {
      if (before.footPhase[leg] > 0.49 || after.footPhase[leg] > 0.49) continue;
      if (after.footPhase[leg] < before.footPhase[leg]) continue;
      const auto footX = [leg](const BodyState& s) {
        return s.position[0] + hipOf(leg)[0] +
               footPosition(leg, {s.joints[leg * 3].position, s.joints[leg * 3 + 1].position,
                                  s.joints[leg * 3 + 2].position})[0];
      };
      ASSERT_NEAR(footX(before), footX(after), 1e-4);
      ++compared;
    }
  }
  EXPECT_GT(compared, 1000);
}

TEST(KinematicBody, accelerationAndVelocityStayWithinTheirLimits) {
  KinematicBody body;
  run(body, standing(), 4);
  double last = 0;
  for (int step = 0; step < 1500; ++step) {
    body.step(walking({step < 700 ? 1.0 : -0.8, 0, 0}), kStep);
    const double velocity = body.state().velocity.x;
    ASSERT_LE(std::abs(velocity - last) / kStep, 4.0 + 1e-6);
    ASSERT_NEAR(body.state().imu.accel[0], (velocity - last) / kStep, 0.15);
    last = velocity;
  }
  EXPECT_NEAR(last, -0.8, 1e-9);
}

TEST(KinematicBody, batteryDrainsFasterUnderLoadAndMotorsWarm) {
  KinematicBody lying;
  run(lying, BodyCommand{}, 60);
  KinematicBody walker;
  run(walker, standing(), 4);
  run(walker, walking({0.8, 0, 0}), 56);
  const double idle = 100 - lying.state().battery.chargePercent;
  const double busy = 100 - walker.state().battery.chargePercent;
  EXPECT_GT(idle, 0);
  EXPECT_GT(busy, 1.5 * idle);
  EXPECT_LT(busy, 5) << "an hour of walking must be possible";
  EXPECT_LT(walker.state().battery.voltage, lying.state().battery.voltage);
  EXPECT_GT(walker.state().joints[2].temperature, lying.state().joints[2].temperature + 1);
  KinematicBody empty(0.0001);
  run(empty, standing(), 20);
  EXPECT_EQ(empty.state().battery.chargePercent, 0);
}

}  // namespace
}  // namespace orvane::robot
