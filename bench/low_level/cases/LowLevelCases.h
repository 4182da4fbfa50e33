#pragma once

#include <span>
#include <vector>

#include "harness/Case.h"
#include "shared_memory/cases/Ends.h"

namespace bench {

/// The cases of the low-level client on the robot's board.
[[nodiscard]] std::span<const Case> lowLevelCases();

std::vector<Row> measurePublication(const Plan& plan);
std::vector<Row> measureLowLevelCost(const Plan& plan);
std::vector<Row> measureExchange(const Plan& plan);
std::vector<Row> measureLoop(const Plan& plan);

/// A stand-in for the board's motion process, and a low-level client whose drive is on. One at a
/// time. `environment` is the client's.
[[nodiscard]] Ends startLowLevel(const Child::Environment& environment = {});

}  // namespace bench
