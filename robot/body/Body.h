#pragma once

#include <array>
#include <cstddef>

namespace orvane::robot {

using Vector3 = std::array<double, 3>;

inline constexpr std::size_t kLegs = 4;          ///< front left, front right, rear left, rear right
inline constexpr std::size_t kJointsPerLeg = 3;  ///< hip, thigh, calf
inline constexpr std::size_t kJoints = kLegs * kJointsPerLeg;

/// A planar velocity in the body's frame (x forward, y left).
struct Twist {
  double x = 0;    ///< m/s
  double y = 0;    ///< m/s
  double yaw = 0;  ///< rad/s, counter-clockwise from above
};

/// What one joint's motor does: its torque is torque + kp * (position - measured position) + kd *
/// (velocity - measured velocity), within maxTorque. All finite, gains not negative.
struct JointCommand {
  double position = 0;   ///< rad
  double velocity = 0;   ///< rad/s
  double kp = 0;         ///< N m/rad
  double kd = 0;         ///< N m s/rad
  double torque = 0;     ///< N m
  double maxTorque = 0;  ///< N m; the motor's own limit holds besides
};
/// Leg by leg: hip, thigh, calf.
using JointCommands = std::array<JointCommand, kJoints>;

/// What the motion controller asks of a body.
struct BodyCommand {
  bool powered = false;   ///< false: motors only damp, the body sinks and brakes by itself
  bool stepping = false;  ///< true: walk with `velocity` (which may be zero: steps on the spot)
  double height = 0;      ///< of the hips above the ground, m
  double stepHeight = 0;  ///< lift of a swinging foot, m
  Twist velocity;
  /// True: get up from a fall, onto the belly; of all that stands above only `powered` counts then.
  bool recover = false;
  /// Not null: each motor on its own, in place of all that stands above but `powered`. Lives at
  /// least for the length of the step.
  const JointCommands* joints = nullptr;
};

struct JointState {
  double position = 0;     ///< rad
  double velocity = 0;     ///< rad/s
  double torque = 0;       ///< N m
  double temperature = 0;  ///< degrees Celsius
  double maxTorque = 0;    ///< N m, what the motor is held to now
};

struct ImuState {
  Vector3 accel{};     ///< specific force in the body's frame, m/s^2 (at rest: +9.81 on z)
  Vector3 gyro{};      ///< angular velocity in the body's frame, rad/s
  Vector3 magnetic{};  ///< magnetic field in the body's frame, microtesla
  Vector3 euler{};     ///< roll, pitch, yaw, rad; yaw in (-pi, pi], from anywhere
  std::array<double, 4> quaternion{1, 0, 0, 0};  ///< w, x, y, z: the same, norm 1
  double temperature = 0;                        ///< degrees Celsius
};

struct BatteryState {
  double chargePercent = 100;  ///< 0 to 100
  double healthPercent = 100;
  double temperature = 0;  ///< degrees Celsius
  double current = 0;      ///< A, negative while discharging
  double voltage = 0;      ///< V
};

/// Everything that can be seen of a body, as it knows it: a body with sensors estimates its height,
/// velocities, position and yaw. World frame: origin and x axis where the body was when it was
/// made, z up.
struct BodyState {
  bool powered = false;
  bool still = true;        ///< nothing moves, no step is under way
  bool down = true;         ///< lies still on its belly, legs under it: from there it can stand up
  bool fallen = false;      ///< its legs can't carry it: tilted too far, or lies with legs astray
  double height = 0;        ///< of the hips above the ground, m
  Twist velocity;           ///< that it has, level frame (the yaw is the body's)
  Vector3 position{};       ///< world, m; z is the height
  Vector3 worldVelocity{};  ///< world, m/s
  double yaw = 0;           ///< rad, in (-pi, pi]
  std::array<JointState, kJoints> joints{};  ///< leg by leg: hip, thigh, calf
  std::array<double, kLegs> footPhase{};     ///< 0..1 through stance (below 0.5) and swing
  ImuState imu;
  BatteryState battery;
};

/// The physics behind the robot. Not thread-safe: the robot mutex guards it.
class Body {
 public:
  virtual ~Body() = default;
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;

  /// Lets `seconds` (above 0, at most 0.01) pass under `command`. Neither blocks nor allocates.
  virtual void step(const BodyCommand& command, double seconds) = 0;
  [[nodiscard]] virtual const BodyState& state() const = 0;

 protected:
  Body() = default;
};

}  // namespace orvane::robot
