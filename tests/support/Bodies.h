#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RobotSettings.h"

namespace orvane_test {

using orvane::robot::BodyKind;

/// What a virtual robot of this build can be made of.
inline std::vector<BodyKind> bodies() {
  std::vector<BodyKind> kinds{BodyKind::kKinematic};
  if (orvane::robot::kHasPhysics) kinds.push_back(BodyKind::kPhysics);
  return kinds;
}

/// As virtual-robot's --body has it.
inline std::string nameOf(BodyKind body) {
  return body == BodyKind::kPhysics ? "physics" : "kinematic";
}
inline std::string nameOfParameter(const testing::TestParamInfo<BodyKind>& info) {
  return nameOf(info.param);
}

}  // namespace orvane_test
