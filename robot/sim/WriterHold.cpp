#include "sim/WriterHold.h"

#include <algorithm>
#include <limits>

namespace orvane::robot {
namespace {

/// A number too large for a record stays one that no motor has.
std::uint16_t narrowed(std::uint32_t number) {
  constexpr std::uint32_t kNone = std::numeric_limits<std::uint16_t>::max();
  return static_cast<std::uint16_t>(std::min(number, kNone));
}

}  // namespace

RobotSdk::LowLevelMotorRecord toMotorRecord(const msg::dds_::MotionCtrl_& sample) {
  RobotSdk::LowLevelMotorRecord record{};
  record.motorNum = sample.motorNum;
  std::transform(sample.motor, sample.motor + RobotSdk::kMaxMotors, record.motor,
                 [](const dds_::MotorCtrl& from) {
                   return RobotSdk::LowLevelMotor{from.position,
                                                  from.velocity,
                                                  from.kpGain,
                                                  from.kdGain,
                                                  from.torque,
                                                  narrowed(from.header.limbsNo),
                                                  narrowed(from.header.jointNo)};
                 });
  return record;
}

}  // namespace orvane::robot
