#include "body/Upkeep.h"

#include <cmath>

namespace orvane::robot {
namespace {

constexpr double kHeatPerTorqueSquared = 0.14;  // degrees per (N m)^2, after a long time
constexpr double kHeatSeconds = 120;
constexpr double kIdleWatts = 28;
constexpr double kDriveWatts = 32;
constexpr double kWattsPerTorqueSquared = 0.08;

constexpr double kFieldNorth = 20.0;  // microtesla, along world x
constexpr double kFieldDown = 44.0;

}  // namespace

void warm(JointState& joint, double seconds) {
  const double target = kAmbient + kHeatPerTorqueSquared * joint.torque * joint.torque;
  joint.temperature += (target - joint.temperature) * seconds / kHeatSeconds;
}

double powerDrawn(const BodyState& state) {
  double watts = kIdleWatts + (state.powered ? kDriveWatts : 0);
  if (!state.powered) return watts;
  for (const JointState& joint : state.joints) {
    watts += std::abs(joint.torque * joint.velocity) +
             kWattsPerTorqueSquared * joint.torque * joint.torque;
  }
  return watts;
}

Vector3 intoBody(const Vector3& euler, const Vector3& world) {
  const double cr = std::cos(euler[0]), sr = std::sin(euler[0]);
  const double cp = std::cos(euler[1]), sp = std::sin(euler[1]);
  const double cy = std::cos(euler[2]), sy = std::sin(euler[2]);
  const double x = cy * world[0] + sy * world[1];
  const double y = -sy * world[0] + cy * world[1];
  const double z = world[2];
  return {cp * x - sp * z, sr * sp * x + cr * y + sr * cp * z, cr * sp * x - sr * y + cr * cp * z};
}

Vector3 magneticField(const Vector3& euler) {
  return intoBody(euler, {kFieldNorth, 0, -kFieldDown});
}

}  // namespace orvane::robot
