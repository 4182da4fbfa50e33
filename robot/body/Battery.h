#pragma once

#include "body/Body.h"

namespace orvane::robot {

/// A lithium pack that drains with the load. Not thread-safe.
class Battery {
 public:
  /// `chargePercent`: 0 to 100, what it starts with.
  explicit Battery(double chargePercent);

  /// Draws `watts` for `seconds`. An empty battery stays at 0 percent.
  void draw(double watts, double seconds);
  [[nodiscard]] const BatteryState& state() const { return state_; }

 private:
  BatteryState state_;
};

}  // namespace orvane::robot
