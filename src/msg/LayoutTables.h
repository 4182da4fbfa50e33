#pragma once

#include "msg/Layout.h"
#include "msg/MotionTypes.h"

/// The member tables of the message types, in declaration order.
namespace orvane::msg::detail {

#define ORVANE_MEMBER(member) describe<decltype(Type::member)>(#member, offsetof(Type, member))

template <>
struct Layout<orvane::dds_::Vector3f> {
  using Type = orvane::dds_::Vector3f;
  static constexpr Member members[] = {ORVANE_MEMBER(error), ORVANE_MEMBER(x), ORVANE_MEMBER(y),
                                       ORVANE_MEMBER(z)};
};

template <>
struct Layout<orvane::dds_::Quaternionf> {
  using Type = orvane::dds_::Quaternionf;
  static constexpr Member members[] = {ORVANE_MEMBER(error), ORVANE_MEMBER(w), ORVANE_MEMBER(x),
                                       ORVANE_MEMBER(y), ORVANE_MEMBER(z)};
};

template <>
struct Layout<orvane::dds_::IMUState> {
  using Type = orvane::dds_::IMUState;
  static constexpr Member members[] = {ORVANE_MEMBER(temp),  ORVANE_MEMBER(accel),
                                       ORVANE_MEMBER(gyro),  ORVANE_MEMBER(mag),
                                       ORVANE_MEMBER(euler), ORVANE_MEMBER(quaternion)};
};

template <>
struct Layout<orvane::dds_::MotorHeader> {
  using Type = orvane::dds_::MotorHeader;
  static constexpr Member members[] = {ORVANE_MEMBER(limbsNo), ORVANE_MEMBER(jointNo)};
};

template <>
struct Layout<orvane::dds_::MotorObserved> {
  using Type = orvane::dds_::MotorObserved;
  static constexpr Member members[] = {
      ORVANE_MEMBER(enable),    ORVANE_MEMBER(online),   ORVANE_MEMBER(error),
      ORVANE_MEMBER(position),  ORVANE_MEMBER(velocity), ORVANE_MEMBER(torque),
      ORVANE_MEMBER(temp),      ORVANE_MEMBER(voltage),  ORVANE_MEMBER(lossRate),
      ORVANE_MEMBER(maxTorque), ORVANE_MEMBER(header)};
};

template <>
struct Layout<orvane::dds_::PowerObserved> {
  using Type = orvane::dds_::PowerObserved;
  static constexpr Member members[] = {ORVANE_MEMBER(power), ORVANE_MEMBER(health),
                                       ORVANE_MEMBER(temper), ORVANE_MEMBER(chargeCurrent),
                                       ORVANE_MEMBER(chargeVoltage)};
};

template <>
struct Layout<orvane::dds_::GEOGPoint> {
  using Type = orvane::dds_::GEOGPoint;
  static constexpr Member members[] = {ORVANE_MEMBER(lat), ORVANE_MEMBER(lng)};
};

template <>
struct Layout<orvane::dds_::GPSFrame> {
  using Type = orvane::dds_::GPSFrame;
  static constexpr Member members[] = {ORVANE_MEMBER(valid), ORVANE_MEMBER(speed),
                                       ORVANE_MEMBER(level), ORVANE_MEMBER(rssi),
                                       ORVANE_MEMBER(point)};
};

template <>
struct Layout<orvane::dds_::UWBRawObserved> {
  using Type = orvane::dds_::UWBRawObserved;
  static constexpr Member members[] = {ORVANE_MEMBER(valid),   ORVANE_MEMBER(pairState),
                                       ORVANE_MEMBER(rssi),    ORVANE_MEMBER(pitch),
                                       ORVANE_MEMBER(azimuth), ORVANE_MEMBER(distance)};
};

template <>
struct Layout<orvane::dds_::MotionOdometry> {
  using Type = orvane::dds_::MotionOdometry;
  static constexpr Member members[] = {ORVANE_MEMBER(valid),    ORVANE_MEMBER(epoch),
                                       ORVANE_MEMBER(yaw),      ORVANE_MEMBER(yawSpeed),
                                       ORVANE_MEMBER(position), ORVANE_MEMBER(velocity)};
};

template <>
struct Layout<orvane::dds_::MotorCtrl> {
  using Type = orvane::dds_::MotorCtrl;
  static constexpr Member members[] = {ORVANE_MEMBER(position), ORVANE_MEMBER(velocity),
                                       ORVANE_MEMBER(kpGain),   ORVANE_MEMBER(kdGain),
                                       ORVANE_MEMBER(torque),   ORVANE_MEMBER(header)};
};

template <>
struct Layout<dds_::MotionObserved_> {
  using Type = dds_::MotionObserved_;
  static constexpr Member members[] = {ORVANE_MEMBER(imu), ORVANE_MEMBER(motorNum),
                                       ORVANE_MEMBER(timestamp), ORVANE_MEMBER(motor),
                                       ORVANE_MEMBER(power)};
};

template <>
struct Layout<dds_::SensorObserved_> {
  using Type = dds_::SensorObserved_;
  static constexpr Member members[] = {ORVANE_MEMBER(timestamp), ORVANE_MEMBER(gps),
                                       ORVANE_MEMBER(uwb), ORVANE_MEMBER(odom)};
};

template <>
struct Layout<dds_::MotionCtrl_> {
  using Type = dds_::MotionCtrl_;
  static constexpr Member members[] = {ORVANE_MEMBER(motorNum), ORVANE_MEMBER(timestamp),
                                       ORVANE_MEMBER(motor)};
};

template <>
struct Layout<dds_::RemoteControl_> {
  using Type = dds_::RemoteControl_;
  static constexpr Member members[] = {
      ORVANE_MEMBER(controller), ORVANE_MEMBER(timestamp), ORVANE_MEMBER(back),
      ORVANE_MEMBER(start),      ORVANE_MEMBER(lb),        ORVANE_MEMBER(rb),
      ORVANE_MEMBER(f1),         ORVANE_MEMBER(f2),        ORVANE_MEMBER(a),
      ORVANE_MEMBER(b),          ORVANE_MEMBER(x),         ORVANE_MEMBER(y),
      ORVANE_MEMBER(up),         ORVANE_MEMBER(down),      ORVANE_MEMBER(left),
      ORVANE_MEMBER(right),      ORVANE_MEMBER(ls),        ORVANE_MEMBER(rs),
      ORVANE_MEMBER(stickLX),    ORVANE_MEMBER(stickLY),   ORVANE_MEMBER(stickRX),
      ORVANE_MEMBER(stickRY),    ORVANE_MEMBER(triggerL),  ORVANE_MEMBER(triggerR)};
};

#undef ORVANE_MEMBER

}  // namespace orvane::msg::detail
