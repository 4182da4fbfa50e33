#pragma once

#include <array>
#include <optional>

#include "body/Body.h"
#include "locomotion/Readings.h"

namespace orvane::robot {

/// What a robot makes of its readings: how it stands and where it has come to. The level frame
/// shares the body's yaw and stands upright.
struct Estimate {
  Vector3 euler{};                    ///< rad; its yaw counts from anywhere
  Vector3 rates{};                    ///< body frame, rad/s
  std::array<Vector3, kLegs> feet{};  ///< level frame, from the hips' middle, m
  double height = 0;                  ///< of the hips above the ground, m
  Vector3 velocity{};                 ///< level frame, m/s
  // Odometry: in the world that has its origin and its x axis where the robot was at first.
  Vector3 position{};  ///< m; z is the height
  double yaw = 0;      ///< rad, in (-pi, pi]
};

/// Follows the robot by its standing feet, its accelerometer and its gyro. Not thread-safe.
class Estimator {
 public:
  /// Of a robot that lies.
  Estimator();
  /// `carrying`: legs whose feet should stand still on the ground now.
  void step(const Readings& readings, const std::array<bool, kLegs>& carrying, double seconds);
  [[nodiscard]] const Estimate& now() const { return now_; }

 private:
  void judgeHeight(double sum, int standing, double seconds);

  Estimate now_;
  std::optional<double> firstYaw_;
  double unsureSeconds_ = 0;  // since two feet stood
};

/// How fast the foot moves as seen from its hip axis, m/s: the joints' velocities at these angles.
[[nodiscard]] Vector3 footVelocity(std::size_t leg, const std::array<double, kJointsPerLeg>& angles,
                                   const std::array<double, kJointsPerLeg>& rates);

}  // namespace orvane::robot
