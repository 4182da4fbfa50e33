#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

#include "core/Failure.h"

namespace robotctl {

/// What is known about a request that failed.
struct FailedRequest {
  std::string request;     ///< the library's name of it
  std::uint32_t code = 0;  ///< getLastError()
  std::string robot;       ///< "robot dog"
  std::string program;     ///< what the robot knows this process by
  std::uint64_t waitedMs = 0;
  Json::Value motionState;  ///< null when the robot doesn't tell
};

/// What was refused, by whom, why, and what would help.
[[nodiscard]] Failure explained(const FailedRequest& failed);

/// "posture lying, control held by drive@desk:4711, for 12 s"; "" when the robot tells nothing.
[[nodiscard]] std::string situation(const Json::Value& motionState);

}  // namespace robotctl
