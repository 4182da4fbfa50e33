#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

namespace orvane::robot {

/// One of the DDS domains of a robot's two computers. Its settings are the board's own file.
struct BoardDomain {
  const char* name;
  std::uint32_t number;
  const char* profile;
};
inline constexpr BoardDomain kBrain{"brain", 2, "/etc/dds/motion_config.xml"};
inline constexpr BoardDomain kCerebellum{"cere", 1, "/etc/dds/cere_config.xml"};

/// Why this machine is no robot board; nothing when it is one.
[[nodiscard]] std::optional<std::string> noBoard();

/// The entry of a domain in a document for the DDS layer.
[[nodiscard]] Json::Value domainEntry(const BoardDomain& domain);

}  // namespace orvane::robot
