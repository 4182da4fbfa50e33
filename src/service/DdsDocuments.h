#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

/// The documents that tell the DDS layer which domains to join, which servers to call and which
/// event buses to open.
namespace orvane::RobotSdk::service {

inline constexpr char kMotionProfile[] = "/etc/dds/motion_config.xml";
inline constexpr char kCerebellumProfile[] = "/etc/dds/cere_config.xml";

/// For the robot board, with the board's own XML profiles.
[[nodiscard]] Json::Value boardDdsDocument(std::int32_t brainDomain, std::int32_t cereDomain);

/// For an external host, with the XML profile at `profilePath`.
[[nodiscard]] Json::Value hostDdsDocument(std::int32_t domain, const std::string& profilePath);

}  // namespace orvane::RobotSdk::service
