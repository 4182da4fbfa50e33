#pragma once

#include <array>

#include "body/Body.h"
#include "locomotion/Estimator.h"

namespace orvane::robot {

/// Turns a robot that has fallen onto its belly and folds its legs under it. Not thread-safe.
class Recovery {
 public:
  using Angles = std::array<double, kJoints>;

  /// From the pose that `readings` show.
  void begin(const Angles& now);
  /// The angles for now.
  const Angles& step(const Estimate& seen, double seconds);
  /// It lies on its belly, legs folded.
  [[nodiscard]] bool done() const { return phase_ == Phase::kDone; }

 private:
  enum class Phase {
    kReach,  ///< on its back: legs of one side turn to the ground behind it,
    kHeave,  ///< and stretch
    kTuck,   ///< on its side: legs below draw in,
    kPush,   ///< and swing out
    kFold,   ///< on its belly: legs go where they are when it lies
    kDone,
  };

  void enter(Phase phase, const Angles& target, double seconds);
  void next(const Estimate& seen);

  Phase phase_ = Phase::kFold;
  Angles from_{};
  Angles target_{};
  Angles now_{};
  double since_ = 0;   // s, in this phase
  double length_ = 1;  // s, of its motion
  double side_ = 1;    // +1: it lies on its left
};

}  // namespace orvane::robot
