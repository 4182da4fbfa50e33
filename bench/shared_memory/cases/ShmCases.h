#pragma once

#include <span>
#include <string>
#include <vector>

#include "harness/Case.h"
#include "shared_memory/cases/Ends.h"

namespace bench {

/// The cases of the shared memory on the robot's board.
[[nodiscard]] std::span<const Case> shmCases();

std::vector<Row> measureChannel(const Plan& plan);
std::vector<Row> measureCost(const Plan& plan);
std::vector<Row> measureBuffer(const Plan& plan);
std::vector<Row> measureTorn(const Plan& plan);

/// The library's channel. `environment` is the writer's.
[[nodiscard]] Ends startOwn(const std::string& channel, const Child::Environment& environment = {});

}  // namespace bench
