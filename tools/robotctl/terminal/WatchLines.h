#pragma once

#include <json/json.h>

#include <string>

#include "terminal/RobotModel.h"

namespace robotctl {

/// One update of `robotctl watch` where there is no screen, as a line for people.
[[nodiscard]] std::string watchLine(const RobotModel& model);
/// The same for programs: everything that is known, and what has happened since number `after`.
[[nodiscard]] Json::Value watchDocument(const RobotModel& model, std::uint64_t after);

}  // namespace robotctl
