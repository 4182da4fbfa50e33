#pragma once

#include "body/Body.h"

namespace orvane::robot {

/// The clock and the foot paths of a trot: diagonal legs step together, half a cycle apart.
/// Starting and stopping is blended, so that joint angles never jump. Not thread-safe.
class Gait {
 public:
  /// Steps per second of one foot.
  static constexpr double kFrequency = 2.0;

  /// Lets time pass. `wanted`: the robot steps or still moves.
  void step(bool wanted, double seconds);

  /// 0: all feet stand; 1: full trot.
  [[nodiscard]] double activity() const { return activity_; }
  /// 0..1 through the cycle of the front left leg.
  [[nodiscard]] double phase() const { return phase_; }
  /// The leg's own phase: stance below 0.5, swing from there on.
  [[nodiscard]] double footPhase(std::size_t leg) const;
  /// Share of its load that the leg carries now, 0..1.
  [[nodiscard]] double load(std::size_t leg) const;
  /// Offset of the leg's foot from where it stands at rest, for a body that moves over that point
  /// with velocity (x, y) in m/s.
  [[nodiscard]] Vector3 footOffset(std::size_t leg, double x, double y, double stepHeight) const;

 private:
  double activity_ = 0;
  double phase_ = 0;
};

}  // namespace orvane::robot
