#pragma once

#include <cstdint>

namespace orvane::robot {

/// A closed range with the value that holds until somebody sets another.
struct Range {
  double lower;
  double upper;
  double initial;
};

// What the robot can be asked for; also what it tells of its capabilities.
inline constexpr Range kForwardSpeed{-0.8, 1.0, 0};    ///< m/s
inline constexpr Range kSidewaysSpeed{-0.4, 0.4, 0};   ///< m/s
inline constexpr Range kYawSpeed{-1.5, 1.5, 0};        ///< rad/s
inline constexpr Range kBodyHeight{0.22, 0.34, 0.30};  ///< m
inline constexpr Range kStepHeight{0.02, 0.10, 0.06};  ///< m

/// A walking command holds this long. Then the robot brakes: the kinematic body stands within a
/// second of the last command; one with weight is down to 0.2 m/s by then (0.5 m/s if it went
/// backwards at full speed), and stands within two.
inline constexpr std::uint32_t kWalkRefreshMs = 700;

}  // namespace orvane::robot
