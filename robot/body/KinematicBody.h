#pragma once

#include "body/Battery.h"
#include "body/Body.h"
#include "body/Gait.h"

namespace orvane::robot {

/// A body without physics, cheap enough for fleets: it follows its commands within limits of speed
/// and acceleration, and everything that it shows is derived from that one motion. Joint angles
/// come from the feet's paths, joint velocities and gyro from differences of angles, acceleration
/// from the change of the world velocity, odometry from its integral. Not thread-safe.
///
/// Commanded joint by joint it is the other way round: each joint moves as its motor and its share
/// of the weight have it (JointModel.h), and the body rises and sinks with its legs. It stays where
/// it is and upright then, whatever the legs do. Neither way of command begins with a jump.
class KinematicBody final : public Body {
 public:
  /// Lies at the origin. `chargePercent`: 0 to 100.
  explicit KinematicBody(double chargePercent = 100);

  void step(const BodyCommand& command, double seconds) override;
  [[nodiscard]] const BodyState& state() const override { return state_; }

 private:
  void moveBase(const BodyCommand& command, double seconds);
  void moveHeight(const BodyCommand& command, double seconds);
  void moveLegs(double seconds);
  void moveJoints(const JointCommands& commands, double seconds);
  void sense(double seconds);

  Gait gait_;
  Battery battery_;
  double heightRate_ = 0;  // m/s
  double stepHeight_ = 0;  // m
  Vector3 previousWorldVelocity_{};
  bool jointByJoint_ = false;                 // the last step's way of command
  std::array<double, kJoints> poseOffset_{};  // rad, what is left of a pose that joints were led to
  BodyState state_;
};

}  // namespace orvane::robot
