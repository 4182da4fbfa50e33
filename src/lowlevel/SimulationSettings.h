#pragma once

#include <cstdint>
#include <dds/core/Policy.hpp>
#include <string>

namespace orvane::RobotSdk::lowlevel {

/// What the environment says about the simulation client's connection. An unset or empty variable
/// gives the default.
struct SimulationSettings {
  /// Reads ORVANE_MOTION_DDS_DOMAIN and so on.
  static SimulationSettings fromEnvironment();

  long domain;  ///< as it was written: judged when the domain is joined
  std::string controlTopic;
  std::string observedTopic;
  std::string trcTopic;
  std::int32_t depth;     ///< of each history, 1 or more
  std::uint64_t staleMs;  ///< how old a remote-control sample may be, 1 or more
};

/// The word in that variable: "RELIABLE" or "reliable" is reliable, all others best effort.
[[nodiscard]] dds::core::policy::Reliability reliabilityIn(const char* variable);

}  // namespace orvane::RobotSdk::lowlevel
