#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace orvane::robot {

/// What the computer that runs the robot says of itself. What it doesn't say is left out.
struct HostFigures {
  struct Memory {
    std::uint64_t totalBytes = 0;      ///< above 0
    std::uint64_t availableBytes = 0;  ///< at most the total
  };
  std::uint32_t processors = 0;
  std::optional<std::array<double, 3>> loadAverage{};  ///< over 1, 5 and 15 minutes
  std::optional<Memory> memory{};
  std::optional<double> processorTemperature{};  ///< of the hottest of its sensors, degrees Celsius
  std::string system{};                          ///< the kernel and its release
  std::string board{};                           ///< first line of /version; empty: there is none
};

/// Reads them from the files of the system, which lie below `root` (empty: where they are). May
/// take milliseconds, for some sensors are slow: not under the robot mutex. Never throws; a file
/// that can't be understood counts as missing.
[[nodiscard]] HostFigures readHostFigures(const std::string& root = {});

}  // namespace orvane::robot
