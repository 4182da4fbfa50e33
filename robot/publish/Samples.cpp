#include "publish/Samples.h"

namespace orvane::robot {
namespace {

constexpr std::uint32_t kOdometryEpoch = 1;

// Samples and records name the same members alike; where they keep a joint's address differs.

void setAddress(orvane::dds_::MotorObserved& motor, std::size_t limb, std::size_t joint) {
  motor.header = {static_cast<std::uint32_t>(limb), static_cast<std::uint32_t>(joint)};
}

void setAddress(RobotSdk::ObservedMotor& motor, std::size_t limb, std::size_t joint) {
  motor.limbsNo = static_cast<std::uint16_t>(limb);
  motor.jointNo = static_cast<std::uint16_t>(joint);
}

template <class Target>
void set(Target& target, const Vector3& vector) {
  target = {0, static_cast<float>(vector[0]), static_cast<float>(vector[1]),
            static_cast<float>(vector[2])};
}

template <class Unit>
void fillImu(Unit& unit, const ImuState& imu) {
  unit.temp = static_cast<float>(imu.temperature);
  set(unit.accel, imu.accel);
  set(unit.gyro, imu.gyro);
  set(unit.mag, imu.magnetic);
  set(unit.euler, imu.euler);
  unit.quaternion = {0, static_cast<float>(imu.quaternion[0]),
                     static_cast<float>(imu.quaternion[1]), static_cast<float>(imu.quaternion[2]),
                     static_cast<float>(imu.quaternion[3])};
}

template <class Motor>
void fillMotor(Motor& motor, const BodyState& body, std::size_t index) {
  const JointState& joint = body.joints[index];
  motor.enable = body.powered ? 1 : 0;
  motor.online = 1;
  motor.position = static_cast<float>(joint.position);
  motor.velocity = static_cast<float>(joint.velocity);
  motor.torque = static_cast<float>(joint.torque);
  motor.temp = static_cast<float>(joint.temperature);
  motor.voltage = static_cast<float>(body.battery.voltage);
  motor.maxTorque = static_cast<float>(joint.maxTorque);
  setAddress(motor, index / kJointsPerLeg, index % kJointsPerLeg);
}

template <class Motion>
void fillMotion(Motion& motion, const BodyState& body) {
  motion = {};
  fillImu(motion.imu, body.imu);
  motion.motorNum = static_cast<std::int32_t>(kJoints);
  for (std::size_t index = 0; index < kJoints; ++index) fillMotor(motion.motor[index], body, index);
  motion.power.power = static_cast<float>(body.battery.chargePercent);
  motion.power.health = static_cast<float>(body.battery.healthPercent);
  motion.power.temper = static_cast<float>(body.battery.temperature);
  motion.power.chargeCurrent = static_cast<float>(body.battery.current);
  motion.power.chargeVoltage = static_cast<float>(body.battery.voltage);
}

template <class Sensors>
void fillSensors(Sensors& sensors, const BodyState& body) {
  sensors = {};
  sensors.odom.valid = 1;
  sensors.odom.epoch = kOdometryEpoch;
  sensors.odom.yaw = static_cast<float>(body.yaw);
  sensors.odom.yawSpeed = static_cast<float>(body.velocity.yaw);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    sensors.odom.position[axis] = static_cast<float>(body.position[axis]);
    sensors.odom.velocity[axis] = static_cast<float>(body.worldVelocity[axis]);
  }
}

}  // namespace

void fill(orvane::msg::dds_::MotionObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs) {
  fillMotion(sample, body);
  sample.timestamp = timestampUs;
}

void fill(RobotSdk::ObservedMotionRecord& record, const BodyState& body) {
  fillMotion(record, body);
  record.valid = 1;
}

void fill(orvane::msg::dds_::SensorObserved_& sample, const BodyState& body,
          std::uint64_t timestampUs) {
  fillSensors(sample, body);
  sample.timestamp = timestampUs;
}

void fill(RobotSdk::ObservedSensorRecord& record, const BodyState& body) {
  fillSensors(record, body);
}

}  // namespace orvane::robot
