#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "RobotSettings.h"

namespace orvane::robot {

/// Has a running robot carry out `commands`, in order, and prints what it answers, within
/// `timeoutMs` and a moment for joining and leaving DDS. The robot is that of this board, when
/// `robot` serves the board, else the one of that device id on that interface and domain. What went
/// wrong goes to standard error. The exit status: 0 when all was carried out, else 1.
[[nodiscard]] int tell(const RobotSettings& robot, const std::vector<std::string>& commands,
                       std::uint32_t timeoutMs);

}  // namespace orvane::robot
