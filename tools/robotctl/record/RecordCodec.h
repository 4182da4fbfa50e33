#pragma once

#include <string>

#include "orvane/RobotSdk/Records.h"
#include "record/Bytes.h"

/// The library's records as messages: CDR (little-endian, as DDS writes plain types), and the
/// definitions of the messages in the text form that goes with it.
namespace robotctl::codec {

/// The message definition of a recording's schema, those of its parts included.
[[nodiscard]] std::string motionDefinition();
[[nodiscard]] std::string sensorDefinition();

/// Puts the message into `out`, which is emptied first. Of the motors those that the robot filled;
/// reserved bytes are left out.
void encode(const orvane::RobotSdk::ObservedMotionRecord& record, mcap::ByteBuffer& out);
void encode(const orvane::RobotSdk::ObservedSensorRecord& record, mcap::ByteBuffer& out);

/// False, with `record` in any state, when the bytes are no such message.
[[nodiscard]] bool decode(mcap::ByteView bytes, orvane::RobotSdk::ObservedMotionRecord& record);
[[nodiscard]] bool decode(mcap::ByteView bytes, orvane::RobotSdk::ObservedSensorRecord& record);

}  // namespace robotctl::codec
