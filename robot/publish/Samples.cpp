#include "publish/Samples.h"

#include "body/LegKinematics.h"

namespace orvane::robot {
namespace {

orvane::dds_::Vector3f vectorOf(const Vector3& vector) {
  return {0, static_cast<float>(vector[0]), static_cast<float>(vector[1]),
          static_cast<float>(vector[2])};
}

}  // namespace

void fill(orvane::msg::dds_::MotionObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs) {
  sample = {};
  sample.timestamp = timestampUs;
  const ImuState& imu = body.imu;
  sample.imu.temp = static_cast<float>(imu.temperature);
  sample.imu.accel = vectorOf(imu.accel);
  sample.imu.gyro = vectorOf(imu.gyro);
  sample.imu.mag = vectorOf(imu.magnetic);
  sample.imu.euler = vectorOf(imu.euler);
  sample.imu.quaternion = {
      0, static_cast<float>(imu.quaternion[0]), static_cast<float>(imu.quaternion[1]),
      static_cast<float>(imu.quaternion[2]), static_cast<float>(imu.quaternion[3])};
  sample.motorNum = static_cast<std::int32_t>(kJoints);
  for (std::size_t index = 0; index < kJoints; ++index) {
    const JointState& joint = body.joints[index];
    auto& motor = sample.motor[index];
    motor.enable = body.powered ? 1 : 0;
    motor.online = 1;
    motor.position = static_cast<float>(joint.position);
    motor.velocity = static_cast<float>(joint.velocity);
    motor.torque = static_cast<float>(joint.torque);
    motor.temp = static_cast<float>(joint.temperature);
    motor.voltage = static_cast<float>(body.battery.voltage);
    motor.maxTorque = static_cast<float>(kJointLimits[index % kJointsPerLeg].maxTorque);
    motor.header.limbsNo = static_cast<std::uint32_t>(index / kJointsPerLeg);
    motor.header.jointNo = static_cast<std::uint32_t>(index % kJointsPerLeg);
  }
  sample.power.power = static_cast<float>(body.battery.chargePercent);
  sample.power.health = static_cast<float>(body.battery.healthPercent);
  sample.power.temper = static_cast<float>(body.battery.temperature);
  sample.power.chargeCurrent = static_cast<float>(body.battery.current);
  sample.power.chargeVoltage = static_cast<float>(body.battery.voltage);
}

void fill(orvane::msg::dds_::SensorObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs, std::uint32_t odometryEpoch) {
  sample = {};
  sample.timestamp = timestampUs;
  sample.odom.valid = 1;
  sample.odom.epoch = odometryEpoch;
  sample.odom.yaw = static_cast<float>(body.yaw);
  sample.odom.yawSpeed = static_cast<float>(body.velocity.yaw);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    sample.odom.position[axis] = static_cast<float>(body.position[axis]);
    sample.odom.velocity[axis] = static_cast<float>(body.worldVelocity[axis]);
  }
}

}  // namespace orvane::robot
