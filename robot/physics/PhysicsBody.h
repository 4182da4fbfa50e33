#pragma once

#include "body/Battery.h"
#include "body/Body.h"
#include "locomotion/Locomotion.h"
#include "physics/World.h"

namespace orvane::robot {

/// A body with weight: what it is asked for is done by motors that turn its joints, and what it
/// shows comes from its sensors. It falls when its legs don't carry it. Not thread-safe; the same
/// for the same variation and the same calls, whatever the clock says.
class PhysicsBody final : public Body {
 public:
  /// `chargePercent`: 0 to 100. Throws std::runtime_error when the physics model can't be loaded.
  explicit PhysicsBody(double chargePercent, const Variation& variation = {});

  void step(const BodyCommand& command, double seconds) override;
  [[nodiscard]] const BodyState& state() const override { return state_; }

  /// For tests and pictures: the truth, pushes, and placing it elsewhere.
  [[nodiscard]] World& world() { return world_; }

 private:
  void show(const BodyCommand& command, const JointCommands& commands, double seconds);
  void judge(double seconds);

  World world_;
  Locomotion locomotion_;
  Battery battery_;
  BodyState state_;
  double due_ = 0;           // s that the physics lags behind
  double quietSeconds_ = 0;  // since when nothing moves
};

}  // namespace orvane::robot
