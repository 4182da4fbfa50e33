#pragma once

#include "VirtualRobot.h"
#include "harness/Role.h"

namespace bench {

/// The virtual robot on this board. "records": {"commands", "refused", "lost"} of the low-level
/// session, as the robot counted them.
class BoardRobot final : public Role {
 public:
  explicit BoardRobot(const Json::Value&);
  ~BoardRobot() override { robot_.stop(); }
  Json::Value handle(const Json::Value& command) override;

 private:
  orvane::robot::VirtualRobot robot_;
};

}  // namespace bench
