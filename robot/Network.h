#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace orvane::robot {

/// What is wrong with a device id; nothing when it can be used. It becomes the name of a DDS
/// partition and must hold no wildcards.
[[nodiscard]] std::optional<std::string> deviceIdError(const std::string& deviceId);

/// What is wrong with a robot's address; nothing when it can be used.
[[nodiscard]] std::optional<std::string> settingsError(const std::string& deviceId,
                                                       const std::string& interface,
                                                       std::uint32_t domain);

/// What is wrong with a share of packets to lose. libddsc loses them in steps of 0.1 percent.
[[nodiscard]] std::optional<std::string> lossError(double lossPercent);

/// Name of the DDS domain of external hosts in the documents of this program.
inline constexpr const char* kHostDomain = "host";

/// A document for the DDS layer of a process that speaks on `interface` in `domain`, with no
/// endpoints yet. It loses `lossPercent` (see lossError; rounded to a step) of what it sends.
[[nodiscard]] Json::Value ddsDocument(const std::string& interface, std::uint32_t domain,
                                      double lossPercent = 0);

/// Why joining `domain` on `interface` failed, as far as the system's state tells: an interface
/// that is down, or no participant slot left. An interface without multicast (lo, usually) has nine
/// slots per domain, one for each process: the ports on which they can find one another.
[[nodiscard]] std::string joinFailure(const std::string& interface, std::uint32_t domain);

}  // namespace orvane::robot
