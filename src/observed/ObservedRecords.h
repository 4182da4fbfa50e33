#pragma once

#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk {

/// The public records of received samples. Every byte that the sample doesn't fill is zero, padding
/// included; the samples' time stamps have no place in the records. None of these functions
/// allocates or locks.

/// `motorNum` is passed on as sent, but at least 0; the motor entries copied are as many, but at
/// most 16. Limb and joint numbers are cut to 16 bits.
[[nodiscard]] ObservedMotionRecord toMotionRecord(const msg::dds_::MotionObserved_& sample);
/// Puts the remote control into a record of toMotionRecord, marked as included.
void includeRemoteControl(const msg::dds_::RemoteControl_& sample, ObservedMotionRecord& record);
[[nodiscard]] ObservedSensorRecord toSensorRecord(const msg::dds_::SensorObserved_& sample);

}  // namespace orvane::RobotSdk
