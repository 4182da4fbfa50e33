#pragma once

#include <json/value.h>

#include <cstdint>

#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::robot {

// What a robot says that has lost its senses: documents whose members have wrong types, samples and
// records with figures that are none and counts out of range. `turn` chooses; each rising number
// gives another kind.

/// In place of an answer.
[[nodiscard]] Json::Value nonsenseAnswer(std::uint32_t turn);
/// In place of an event's payload. It keeps its "deviceNo" where it is an object, so that most of
/// it bothers this robot's clients only.
[[nodiscard]] Json::Value nonsenseEvent(std::uint32_t turn, const Json::Value& deviceNo);
void spoil(orvane::msg::dds_::MotionObserved_& sample, std::uint32_t turn) noexcept;
void spoil(orvane::msg::dds_::SensorObserved_& sample, std::uint32_t turn) noexcept;
void spoil(orvane::msg::dds_::RemoteControl_& sample, std::uint32_t turn) noexcept;
void spoil(RobotSdk::ObservedMotionRecord& record, std::uint32_t turn) noexcept;
void spoil(RobotSdk::ObservedSensorRecord& record, std::uint32_t turn) noexcept;

}  // namespace orvane::robot
