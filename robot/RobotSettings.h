#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace orvane::robot {

/// To whom a robot shows itself.
enum class Deployment {
  kHost,   ///< applications on other machines: one DDS domain, on a network interface
  kBoard,  ///< applications on the robot's own board: its two DDS domains, its shared memory
};

struct RobotSettings {
  std::string deviceId = "VR-0001";  ///< 1 to 64 letters, digits, '-', '_', '.' or ':'
  std::set<Deployment> deployments{Deployment::kHost};  ///< at least one
  double chargePercent = 100;                           ///< of the battery at the start
  std::vector<std::string> faults;  ///< carried out when it starts, see parseFault

  // For external hosts only.
  std::string interface = "lo";  ///< network interface, by name
  std::uint32_t domain = 42;     ///< DDS domain, 0 to 230
  /// 0 or 0.1 to 100: how much of its DDS packets is lost on the way out. Only where this process
  /// hasn't joined the domain before.
  double lossPercent = 0;

  [[nodiscard]] bool serves(Deployment deployment) const {
    return deployments.count(deployment) > 0;
  }
};

}  // namespace orvane::robot
