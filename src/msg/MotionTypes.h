#pragma once

#include <cstddef>
#include <dds/topic/TypeSupport.hpp>
#include <type_traits>

#include "Motion.h"

/// The message types under their DDS names. They are the structures that idlc generates from
/// Motion.idl: plain values without memory of their own, copied by assignment. Units and value
/// ranges are those that the robot's boards publish.
namespace orvane::dds_ {

using Vector3f = ::orvane_dds__Vector3f;
using Quaternionf = ::orvane_dds__Quaternionf;
using IMUState = ::orvane_dds__IMUState;
using MotorHeader = ::orvane_dds__MotorHeader;
using MotorObserved = ::orvane_dds__MotorObserved;
using PowerObserved = ::orvane_dds__PowerObserved;
using GEOGPoint = ::orvane_dds__GEOGPoint;
using GPSFrame = ::orvane_dds__GPSFrame;
using UWBRawObserved = ::orvane_dds__UWBRawObserved;
using OdomVector3 = ::orvane_dds__OdomVector3;
using MotionOdometry = ::orvane_dds__MotionOdometry;
using MotorCtrl = ::orvane_dds__MotorCtrl;

}  // namespace orvane::dds_

namespace orvane::msg::dds_ {

using IMUState = ::orvane_msg_dds__IMUState;
using MotorObserved = ::orvane_msg_dds__MotorObserved;
using PowerObserved = ::orvane_msg_dds__PowerObserved;
using GPSFrame = ::orvane_msg_dds__GPSFrame;
using UWBRawObserved = ::orvane_msg_dds__UWBRawObserved;
using MotionOdometry = ::orvane_msg_dds__MotionOdometry;
using MotorCtrl = ::orvane_msg_dds__MotorCtrl;

/// Joints, inertial unit and power of the motion board: topic "motion/observed".
using MotionObserved_ = ::orvane_msg_dds__MotionObserved_;
/// GPS, UWB beacon and odometry: topic "sensor/observed".
using SensorObserved_ = ::orvane_msg_dds__SensorObserved_;
/// Low-level command per motor.
using MotionCtrl_ = ::orvane_msg_dds__MotionCtrl_;
/// State of the game pad.
using RemoteControl_ = ::orvane_msg_dds__RemoteControl_;

/// Entries of the motor arrays, all of them on the wire whatever `motorNum` says.
inline constexpr std::size_t kMotorEntries = std::extent_v<decltype(MotionObserved_::motor)>;

static_assert(sizeof(MotionObserved_) == 768 && sizeof(SensorObserved_) == 88);
static_assert(sizeof(MotionCtrl_) == 464 && sizeof(RemoteControl_) == 56);
static_assert(kMotorEntries == 16 && std::extent_v<decltype(MotionCtrl_::motor)> == kMotorEntries);
static_assert(offsetof(MotionObserved_, motorNum) == 88);
static_assert(offsetof(MotionObserved_, timestamp) == 96);
static_assert(offsetof(MotionObserved_, motor) == 104);
static_assert(offsetof(MotionObserved_, power) == 744);
static_assert(offsetof(SensorObserved_, gps) == 8 && offsetof(SensorObserved_, uwb) == 32);
static_assert(offsetof(SensorObserved_, odom) == 44);
static_assert(offsetof(MotionCtrl_, timestamp) == 8 && offsetof(MotionCtrl_, motor) == 16);
static_assert(offsetof(RemoteControl_, back) == 16 && offsetof(RemoteControl_, stickLX) == 32);
static_assert(sizeof(IMUState) == 88 && sizeof(MotorObserved) == 40 && sizeof(PowerObserved) == 20);
static_assert(sizeof(GPSFrame) == 24 && sizeof(UWBRawObserved) == 12);
static_assert(sizeof(MotionOdometry) == 40 && sizeof(MotorCtrl) == 28);
static_assert(std::is_signed_v<decltype(MotionObserved_::motorNum)> &&
              std::is_unsigned_v<decltype(MotionCtrl_::motorNum)>);
static_assert(std::is_trivially_copyable_v<MotionObserved_> &&
              std::is_trivially_copyable_v<SensorObserved_> &&
              std::is_trivially_copyable_v<MotionCtrl_> &&
              std::is_trivially_copyable_v<RemoteControl_>);

}  // namespace orvane::msg::dds_

DDS_REGISTER_TYPE(orvane::msg::dds_::MotionObserved_, orvane_msg_dds__MotionObserved__desc);
DDS_REGISTER_TYPE(orvane::msg::dds_::SensorObserved_, orvane_msg_dds__SensorObserved__desc);
DDS_REGISTER_TYPE(orvane::msg::dds_::MotionCtrl_, orvane_msg_dds__MotionCtrl__desc);
DDS_REGISTER_TYPE(orvane::msg::dds_::RemoteControl_, orvane_msg_dds__RemoteControl__desc);
