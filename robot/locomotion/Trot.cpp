#include "locomotion/Trot.h"

#include <algorithm>
#include <cmath>

#include "body/Ease.h"
#include "body/LegKinematics.h"
#include "locomotion/Attitude.h"

namespace orvane::robot {
namespace {

constexpr double kFrequency = 2.2;     // cycles per second
constexpr double kStanceShare = 0.56;  // of a cycle
constexpr double kStanceSeconds = kStanceShare / kFrequency;
constexpr double kSwingSeconds = (1 - kStanceShare) / kFrequency;
constexpr double kLinearGrowth = 1.2;     // m/s^2
constexpr double kAngularGrowth = 4.0;    // rad/s^2
constexpr double kLinearBraking = 8.0;    // m/s^2, when it is to stand
constexpr double kAngularBraking = 12.0;  // rad/s^2
constexpr double kCapture = 0.10;         // s: foot placement per error of velocity
constexpr double kMostOutwards = 0.9;     // m/s^2 that a curve may throw it outwards
constexpr double kOutwards = 0.5;     // share of that which the feet bear by standing further out
constexpr double kReach = 0.16;       // m, farthest step from where the foot rests
constexpr double kReachAside = 0.10;  // m, the same sideways
constexpr double kTracking = 0.8;     // 1/s, integral gain on the velocity's error
constexpr double kMostCorrection = 0.15;  // m/s
constexpr double kMostTurning = 0.35;     // rad/s
constexpr double kSoft = 0.003;  // m below the ground at the swing's end: a foot that reaches it
constexpr double kStandSpeed = 0.3;  // m/s that four feet catch
constexpr double kAstray = 0.05;     // m from where it rests: no foot to stand on for long

/// The same curve, so slowly that it isn't thrown out of it.
Twist slowedInCurves(const Twist& twist) {
  const double outwards = std::abs(twist.yaw) * std::hypot(twist.x, twist.y);
  if (outwards <= kMostOutwards) return twist;
  const double slower = std::sqrt(kMostOutwards / outwards);
  return {twist.x * slower, twist.y * slower, twist.yaw * slower};
}

}  // namespace

Vector3 Trot::rest(std::size_t leg) {
  const Vector3 hip = hipOf(leg);
  return {hip[0], hip[1] + sideOf(leg) * kGeometry.hipLength, 0};
}

void Trot::reset() {
  for (std::size_t leg = 0; leg < kLegs; ++leg) feet_[leg] = {rest(leg), {}, false};
  velocity_ = correction_ = {};
  cycle_ = 0;
  stepping_ = false;
}

double Trot::phase(std::size_t leg) const {
  if (!stepping_) return 0;
  const bool first = leg == 0 || leg == 3;
  const double own = std::fmod(cycle_ + (first ? kStanceShare : kStanceShare + 0.5), 1.0);
  return own < kStanceShare ? 0.5 * own / kStanceShare
                            : 0.5 + 0.5 * (own - kStanceShare) / (1 - kStanceShare);
}

void Trot::slew(Twist& twist, const Twist& target, double linear, double angular) {
  twist.x = approach(twist.x, target.x, linear);
  twist.y = approach(twist.y, target.y, linear);
  twist.yaw = approach(twist.yaw, target.yaw, angular);
}

bool Trot::canStand(const Estimate& seen) const {
  if (velocity_.x != 0 || velocity_.y != 0 || velocity_.yaw != 0) return false;
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const Vector3 home = rest(leg);
    const Vector3& place = feet_[leg].place;
    if (std::hypot(place[0] - home[0], place[1] - home[1]) > kAstray) return false;
  }
  return std::hypot(seen.velocity[0], seen.velocity[1]) < kStandSpeed;
}

/// The robot goes a little slower, or to one side: asks the feet for as much more.
void Trot::track(const Estimate& seen, double seconds) {
  const double yawRate = toLevel(seen.euler[0], seen.euler[1], seen.rates)[2];
  const auto integrate = [seconds](double& correction, double error, double most) {
    correction = std::clamp(correction + kTracking * error * seconds, -most, most);
  };
  integrate(correction_.x, velocity_.x - seen.velocity[0], kMostCorrection);
  integrate(correction_.y, velocity_.y - seen.velocity[1], kMostCorrection);
  integrate(correction_.yaw, velocity_.yaw - yawRate, kMostTurning);
}

void Trot::step(bool wanted, const Twist& velocity, double stepHeight, const Estimate& seen,
                double seconds) {
  if (wanted) {
    slew(velocity_, slowedInCurves(velocity), kLinearGrowth * seconds, kAngularGrowth * seconds);
  } else {
    for (Twist* twist : {&velocity_, &correction_}) {
      slew(*twist, {}, kLinearBraking * seconds, kAngularBraking * seconds);
    }
  }
  if (wanted && !stepping_) {
    stepping_ = true;
    cycle_ = 0;
    for (std::size_t leg = 0; leg < kLegs; ++leg) lifted_[leg] = feet_[leg].place;
  }
  if (!stepping_) {
    for (Foot& foot : feet_) foot.velocity = {}, foot.swings = false, foot.place[2] = 0;
    return;
  }
  if (wanted) track(seen, seconds);
  const bool firstHalf = cycle_ < 0.5;
  cycle_ = std::fmod(cycle_ + kFrequency * seconds, 1.0);
  const bool onFourFeet = firstHalf != (cycle_ < 0.5);  // one pair is down, the other not yet up
  if (!wanted && onFourFeet && canStand(seen)) {
    stepping_ = false;
    for (Foot& foot : feet_) foot.velocity = {}, foot.swings = false, foot.place[2] = 0;
    return;
  }
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const double own = phase(leg);
    if (own < 0.5) {
      stance(leg, seconds);
    } else {
      swing(leg, 2 * own - 1, stepHeight, seen, seconds);
    }
  }
}

void Trot::stance(std::size_t leg, double seconds) {
  Foot& foot = feet_[leg];
  foot.swings = false;
  const double yaw = velocity_.yaw + correction_.yaw;
  foot.velocity = {-(velocity_.x + correction_.x) + yaw * foot.place[1],
                   -(velocity_.y + correction_.y) - yaw * foot.place[0], 0};
  for (std::size_t axis = 0; axis < 2; ++axis) foot.place[axis] += foot.velocity[axis] * seconds;
  foot.place[2] = 0;
  lifted_[leg] = foot.place;
}

void Trot::swing(std::size_t leg, double share, double stepHeight, const Estimate& seen,
                 double seconds) {
  Foot& foot = feet_[leg];
  foot.swings = true;
  const Vector3 home = rest(leg);
  const double yaw = velocity_.yaw + correction_.yaw;
  const double x = velocity_.x + correction_.x - yaw * home[1];
  const double y = velocity_.y + correction_.y + yaw * home[0];
  // In a curve the feet stand further out, so that the weight bears what throws it outwards.
  const double outwards = kOutwards * velocity_.yaw * seen.height / kGravity;
  const double ahead =
      x * kStanceSeconds / 2 + kCapture * (seen.velocity[0] - velocity_.x) + outwards * velocity_.y;
  const double aside =
      y * kStanceSeconds / 2 + kCapture * (seen.velocity[1] - velocity_.y) - outwards * velocity_.x;
  const Vector3 target{home[0] + std::clamp(ahead, -kReach, kReach),
                       home[1] + std::clamp(aside, -kReachAside, kReachAside), 0};
  const double s = std::clamp(share, 0.0, 1.0);
  const double blend = smoothStep(s);
  const double rate = 6 * s * (1 - s) / kSwingSeconds;
  for (std::size_t axis = 0; axis < 2; ++axis) {
    const double way = target[axis] - lifted_[leg][axis];
    foot.place[axis] = lifted_[leg][axis] + way * blend;
    foot.velocity[axis] = way * rate;
  }
  const double lift = stepHeight * std::sin(M_PI * s) * std::sin(M_PI * s) - kSoft * blend;
  foot.velocity[2] = (lift - foot.place[2]) / seconds;
  foot.place[2] = lift;
}

}  // namespace orvane::robot
