#include "observed/ObservedRecords.h"

#include <algorithm>
#include <iterator>

namespace orvane::RobotSdk {
namespace {

ObservedVector3 toVector(const dds_::Vector3f& from) {
  return {static_cast<std::uint8_t>(from.error), from.x, from.y, from.z};
}

ObservedQuaternion toQuaternion(const dds_::Quaternionf& from) {
  return {static_cast<std::uint8_t>(from.error), from.w, from.x, from.y, from.z};
}

ObservedMotor toMotor(const dds_::MotorObserved& from) {
  ObservedMotor motor{};
  motor.enable = from.enable;
  motor.online = from.online;
  motor.error = from.error;
  motor.position = from.position;
  motor.velocity = from.velocity;
  motor.torque = from.torque;
  motor.temp = from.temp;
  motor.voltage = from.voltage;
  motor.lossRate = from.lossRate;
  motor.maxTorque = from.maxTorque;
  motor.limbsNo = static_cast<std::uint16_t>(from.header.limbsNo);
  motor.jointNo = static_cast<std::uint16_t>(from.header.jointNo);
  return motor;
}

}  // namespace

ObservedMotionRecord toMotionRecord(const msg::dds_::MotionObserved_& sample) {
  ObservedMotionRecord record{};
  record.valid = 1;
  record.motorNum = std::max(sample.motorNum, 0);  // applications loop up to it
  record.imu = {
      sample.imu.temp,          toVector(sample.imu.accel), toVector(sample.imu.gyro),
      toVector(sample.imu.mag), toVector(sample.imu.euler), toQuaternion(sample.imu.quaternion)};
  record.power = {sample.power.power, sample.power.health, sample.power.temper,
                  sample.power.chargeCurrent, sample.power.chargeVoltage};
  const int motors = std::clamp(sample.motorNum, 0, static_cast<int>(kMaxMotors));
  std::transform(sample.motor, sample.motor + motors, record.motor, toMotor);
  return record;
}

void includeRemoteControl(const msg::dds_::RemoteControl_& sample, ObservedMotionRecord& record) {
  ObservedRemoteControl& to = record.remoteControl;
  to = {};
  to.included = 1;
  to.controller = sample.controller;
  to.back = sample.back;
  to.start = sample.start;
  to.lb = sample.lb;
  to.rb = sample.rb;
  to.f1 = sample.f1;
  to.f2 = sample.f2;
  to.a = sample.a;
  to.b = sample.b;
  to.x = sample.x;
  to.y = sample.y;
  to.up = sample.up;
  to.down = sample.down;
  to.left = sample.left;
  to.right = sample.right;
  to.ls = sample.ls;
  to.rs = sample.rs;
  to.stickLX = sample.stickLX;
  to.stickLY = sample.stickLY;
  to.stickRX = sample.stickRX;
  to.stickRY = sample.stickRY;
  to.triggerL = sample.triggerL;
  to.triggerR = sample.triggerR;
}

ObservedSensorRecord toSensorRecord(const msg::dds_::SensorObserved_& sample) {
  ObservedSensorRecord record{};
  record.gps = {sample.gps.valid, sample.gps.speed,     sample.gps.level,
                sample.gps.rssi,  sample.gps.point.lat, sample.gps.point.lng};
  record.uwb = {sample.uwb.valid, sample.uwb.pairState, sample.uwb.rssi,
                sample.uwb.pitch, sample.uwb.azimuth,   sample.uwb.distance};
  record.odom.valid = sample.odom.valid;
  std::copy(std::begin(sample.odom.position), std::end(sample.odom.position), record.odom.position);
  std::copy(std::begin(sample.odom.velocity), std::end(sample.odom.velocity), record.odom.velocity);
  record.odom.yaw = sample.odom.yaw;
  record.odom.yawSpeed = sample.odom.yawSpeed;
  record.odom.epoch = sample.odom.epoch;
  return record;
}

}  // namespace orvane::RobotSdk
