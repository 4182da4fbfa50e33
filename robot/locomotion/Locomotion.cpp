#include "locomotion/Locomotion.h"

#include <algorithm>
#include <cmath>

#include "body/Ease.h"
#include "body/LegKinematics.h"
#include "motion/MotionLimits.h"

namespace orvane::robot {
namespace {

constexpr double kRiseSpeed = 0.18;          // m/s
constexpr double kMostWalkingHeight = 0.31;  // m; legs that are longer don't reach for a stride
constexpr double kFoldSpeed = 1.5;           // rad/s, out of a pose that it took over
constexpr double kStanceStiffness = 110;     // N m/rad
constexpr double kStanceDamping = 3.0;       // N m s/rad
constexpr double kSwingStiffness = 80;       // N m/rad
constexpr double kSwingDamping = 2.0;        // N m s/rad
constexpr double kRecoveryStiffness = 60;    // N m/rad
constexpr double kRecoveryDamping = 2.5;     // N m s/rad
constexpr double kFastestJoint = 15;         // rad/s that a joint is led at
constexpr double kLoadedAbove = 0.05;        // m above lying from which the legs carry everything
constexpr double kLevelling = 0.6;           // share of a tilt that longer legs make up for
constexpr double kLevellingSeconds = 0.06;   // of a tilt's rate, the same
constexpr double kMostLevelling = 0.05;      // m

}  // namespace

void Locomotion::takeOver(const Readings& readings) {
  trot_.reset();
  height_ = std::clamp(seen().height, kLyingHeight, kBodyHeight.upper);
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const LegAngles rest =
        legAngles(leg, {0, sideOf(leg) * kGeometry.hipLength, kFootRadius - height_});
    for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
      const std::size_t index = leg * kJointsPerLeg + joint;
      offset_[index] = readings.position[index] - rest[joint];
    }
  }
  recovering_ = false;
}

const JointCommands& Locomotion::step(const BodyCommand& command, const Readings& readings,
                                      double seconds) {
  std::array<bool, kLegs> carrying{};
  for (std::size_t leg = 0; leg < kLegs; ++leg) carrying[leg] = !trot_.feet()[leg].swings;
  estimator_.step(readings, carrying, seconds);
  if (!command.powered || command.joints != nullptr) {
    leading_ = recovering_ = false;
    trot_.reset();
    return commands_;
  }
  if (!leading_) takeOver(readings);
  leading_ = true;
  if (command.recover) {
    recover(readings, seconds);
  } else {
    if (recovering_) takeOver(readings);
    stand(command, seconds);
  }
  return commands_;
}

void Locomotion::recover(const Readings& readings, double seconds) {
  if (!recovering_) recovery_.begin(readings.position);
  recovering_ = true;
  const Recovery::Angles& angles = recovery_.step(seen(), seconds);
  for (std::size_t index = 0; index < kJoints; ++index) {
    commands_[index] = {angles[index],    0, kRecoveryStiffness,
                        kRecoveryDamping, 0, kJointLimits[index % kJointsPerLeg].maxTorque};
  }
}

void Locomotion::stand(const BodyCommand& command, double seconds) {
  const Estimate& now = seen();
  const bool away =
      std::any_of(offset_.begin(), offset_.end(), [](double left) { return left != 0; });
  for (double& left : offset_) left = approach(left, 0, kFoldSpeed * seconds);
  const double most = command.stepping || trot_.stepping() ? kMostWalkingHeight : kBodyHeight.upper;
  if (!away) height_ = approach(height_, std::min(command.height, most), kRiseSpeed * seconds);
  trot_.step(command.stepping, command.velocity, command.stepHeight, now, seconds);

  int standing = 0;
  for (const Trot::Foot& foot : trot_.feet()) standing += foot.swings ? 0 : 1;
  const double share = std::clamp((height_ - kLyingHeight) / kLoadedAbove, 0.0, 1.0);
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const Trot::Foot& foot = trot_.feet()[leg];
    const Vector3 hip = hipOf(leg);
    // A tilted robot is brought back by its legs' stiffness, and by making the lower ones longer.
    const double tilt =
        share * ((kLevelling * now.euler[0] + kLevellingSeconds * now.rates[0]) * foot.place[1] -
                 (kLevelling * now.euler[1] + kLevellingSeconds * now.rates[1]) * foot.place[0]);
    const double levelling = std::clamp(tilt, -kMostLevelling, kMostLevelling);
    const Vector3 place{foot.place[0] - hip[0], foot.place[1] - hip[1],
                        foot.place[2] + kFootRadius - height_ + levelling};
    const LegAngles angles = legAngles(leg, place);
    const LegAngles ahead = legAngles(
        leg, {place[0] + foot.velocity[0] * seconds, place[1] + foot.velocity[1] * seconds,
              place[2] + foot.velocity[2] * seconds});
    const double load = foot.swings ? 0 : share * kBodyMass * kGravity / std::max(standing, 1);
    const LegAngles torques = supportTorques(leg, angles, load);
    for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
      const std::size_t index = leg * kJointsPerLeg + joint;
      const double velocity =
          std::clamp((ahead[joint] - angles[joint]) / seconds, -kFastestJoint, kFastestJoint);
      commands_[index] = {angles[joint] + offset_[index],
                          velocity,
                          foot.swings ? kSwingStiffness : kStanceStiffness,
                          foot.swings ? kSwingDamping : kStanceDamping,
                          torques[joint],
                          kJointLimits[joint].maxTorque};
    }
  }
}

}  // namespace orvane::robot
