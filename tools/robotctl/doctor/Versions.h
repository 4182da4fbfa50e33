#pragma once

#include <vector>

#include "doctor/Finding.h"
#include "doctor/RobotSearch.h"

namespace robotctl::doctor {

/// The versions of this program, of the library, of the platform libraries that are loaded, and of
/// the robots that answered.
[[nodiscard]] Findings checkVersions(const std::vector<RobotAnswer>& robots);

}  // namespace robotctl::doctor
