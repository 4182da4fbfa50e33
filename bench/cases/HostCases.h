#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "harness/Case.h"

namespace bench {

/// The cases of the way from an external host to the robot.
[[nodiscard]] std::span<const Case> hostCases();

std::vector<Row> measureRoundTrip(const Plan& plan);
std::vector<Row> measureObserved(const Plan& plan);
std::vector<Row> measureStart(const Plan& plan);
std::vector<Row> measureFleet(const Plan& plan);
std::vector<Row> measureProcessor(const Plan& plan);
std::vector<Row> measureSimulation(const Plan& plan);
std::vector<Row> measureBody(const Plan& plan);
/// Part of `body`.
std::vector<Row> measureBodyProcess(const Plan& plan);
std::vector<Row> measureSoak(const Plan& plan);

inline constexpr std::uint32_t kHostDomain = 42;  ///< the library's
inline constexpr std::uint32_t kRawDomain = 43;   ///< of the raw baselines that need no robot

/// A virtual robot in a process of its own, on loopback; `body` as the program's option has it.
[[nodiscard]] Child startRobot(const std::string& device, const char* body = "kinematic");

}  // namespace bench
