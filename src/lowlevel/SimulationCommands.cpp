#include "lowlevel/SimulationCommands.h"

#include <cstdint>
#include <cstdio>

#include "pbase/CTime.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

constexpr std::uint16_t kJointsPerLimb = 3;
constexpr float kDamping = 2;  // N m s/rad

constexpr const char* kMotorNames[] = {"FL_hip",   "FL_thigh", "FL_calf",  "FR_hip",
                                       "FR_thigh", "FR_calf",  "RL_hip",   "RL_thigh",
                                       "RL_calf",  "RR_hip",   "RR_thigh", "RR_calf"};

}  // namespace

MotorLayout simulationLayout() {
  MotorLayout layout{};
  for (const char* const name : kMotorNames) {
    MotorLayoutEntry& entry = layout.motors[layout.motorNum];
    entry.limbNo = static_cast<std::uint16_t>(layout.motorNum / kJointsPerLimb);
    entry.jointNo = static_cast<std::uint16_t>(layout.motorNum % kJointsPerLimb);
    static_cast<void>(std::snprintf(entry.name, sizeof entry.name, "%s", name));
    ++layout.motorNum;
  }
  return layout;
}

msg::dds_::MotionCtrl_ controlSample(const LowLevelMotorRecord& record) {
  msg::dds_::MotionCtrl_ sample{};
  sample.motorNum = record.motorNum;
  sample.timestamp = Pexal::PBase::CTime::getCurrentMicroSecond();
  for (std::uint32_t i = 0; i < record.motorNum; ++i) {
    const LowLevelMotor& from = record.motor[i];
    auto& to = sample.motor[i];
    to.position = from.position;
    to.velocity = from.velocity;
    to.kpGain = from.kpGain;
    to.kdGain = from.kdGain;
    to.torque = from.torque;
    to.header.limbsNo = from.limbsNo;
    to.header.jointNo = from.jointNo;
  }
  return sample;
}

msg::dds_::MotionCtrl_ dampingSample() {
  const MotorLayout layout = simulationLayout();
  LowLevelMotorRecord record{};
  record.motorNum = layout.motorNum;
  for (std::uint32_t i = 0; i < layout.motorNum; ++i) {
    record.motor[i].kdGain = kDamping;
    record.motor[i].limbsNo = layout.motors[i].limbNo;
    record.motor[i].jointNo = layout.motors[i].jointNo;
  }
  return controlSample(record);
}

}  // namespace orvane::RobotSdk::lowlevel
