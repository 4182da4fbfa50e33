#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "RobotCore.h"
#include "media/HostFigures.h"

namespace orvane::robot {

inline constexpr const char* kModel = "virtual-quadruped";

// The documents in which the robot describes itself. Units are in the keys' descriptions: lengths
// in m, angles in rad, speeds in m/s and rad/s, times in ms of the robot's own clock.

/// The joints in the order of the observed records: {"motorNum", "motors": [{"limbNo", "jointNo",
/// "name"}]}.
[[nodiscard]] Json::Value motorLayoutDocument();

/// What the robot can be asked for: actions, ranges of velocities and parameters, lease limits.
[[nodiscard]] Json::Value capabilitiesDocument(RobotCore::Access& robot);

/// What it does now: "posture", "velocity", "command", "control" (who, since when, until when),
/// "emergencyStop", "lowLevel" (the session, what the motors do, what came of the records),
/// "simulation" (the same of clients on other machines), "lastRefusal".
[[nodiscard]] Json::Value motionStateDocument(RobotCore::Access& robot,
                                              const std::string& deviceId);

[[nodiscard]] Json::Value batteryDocument(const BatteryState& battery);

/// How the robot and the computer that runs it are: see docs/media.md.
[[nodiscard]] Json::Value systemStatusDocument(RobotCore::Access& robot,
                                               const std::string& deviceId, std::uint64_t startedMs,
                                               const HostFigures& host);

/// What is played, and how far it is: see docs/media.md.
[[nodiscard]] Json::Value playDetailDocument(const Player& player);

/// {"name", "format", "lengthMs", "sizeBytes"}.
[[nodiscard]] Json::Value audioFileDocument(const AudioFile& file);

/// The "detail" of a discovery response.
[[nodiscard]] Json::Value discoveryDocument(RobotCore::Access& robot);

}  // namespace orvane::robot
