#pragma once

#include <array>

#include "body/Body.h"
#include "locomotion/Estimator.h"

namespace orvane::robot {

/// Where the feet go while the robot trots: diagonal legs swing together, to the places that keep
/// it upright and at its velocity. Stands on four feet when it isn't asked to step. Not
/// thread-safe.
class Trot {
 public:
  /// A foot's way, level frame, from the hips' middle; z from the ground upwards.
  struct Foot {
    Vector3 place{};
    Vector3 velocity{};
    bool swings = false;
  };

  /// `wanted`: step with that velocity, or slower where it makes a curve too tight for its speed;
  /// else come to a stand.
  void step(bool wanted, const Twist& velocity, double stepHeight, const Estimate& seen,
            double seconds);
  /// All feet back to where they stand at rest, as the robot lies or stands up.
  void reset();

  [[nodiscard]] const std::array<Foot, kLegs>& feet() const { return feet_; }
  [[nodiscard]] bool stepping() const { return stepping_; }
  /// 0..1 through stance (below 0.5) and swing.
  [[nodiscard]] double phase(std::size_t leg) const;

  /// Where a foot stands at rest.
  [[nodiscard]] static Vector3 rest(std::size_t leg);

 private:
  static void slew(Twist& twist, const Twist& target, double linear, double angular);
  void track(const Estimate& seen, double seconds);
  void stance(std::size_t leg, double seconds);
  void swing(std::size_t leg, double share, double stepHeight, const Estimate& seen,
             double seconds);
  [[nodiscard]] bool canStand(const Estimate& seen) const;

  std::array<Foot, kLegs> feet_{};
  std::array<Vector3, kLegs> lifted_{};  // where each foot left the ground
  Twist velocity_;                       // asked for, slewed
  Twist correction_;                     // added, so that it is reached
  double cycle_ = 0;                     // 0..1
  bool stepping_ = false;
};

}  // namespace orvane::robot
