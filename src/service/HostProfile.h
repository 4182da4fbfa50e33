#pragma once

#include <cstdint>
#include <string>

/// The DDS profile of an external host: an XML file of this process's own under /tmp.
namespace orvane::RobotSdk::service {

/// The profile's text. An empty `networkInterface` leaves the choice of the interface to the DDS
/// library; a name is inserted as it is given, without escaping.
[[nodiscard]] std::string renderHostProfile(std::int32_t domain,
                                            const std::string& networkInterface);

/// Writes the profile of this process. Returns its path, or an empty text after logging the reason.
[[nodiscard]] std::string writeHostProfile(std::int32_t domain,
                                           const std::string& networkInterface);

}  // namespace orvane::RobotSdk::service
