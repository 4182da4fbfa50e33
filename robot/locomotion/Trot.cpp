#include "locomotion/Trot.h"

#include <algorithm>
#include <cmath>

#include "body/LegKinematics.h"
#include "locomotion/Attitude.h"

namespace orvane::robot {
namespace {

constexpr double kFrequency = 2.2;     // cycles per second
constexpr double kStanceShare = 0.56;  // of a cycle
constexpr double kStanceSeconds = kStanceShare / kFrequency;
constexpr double kSwingSeconds = (1 - kStanceShare) / kFrequency;
constexpr double kLinearGrowth = 1.2;   // m/s^2
constexpr double kAngularGrowth = 4.0;  // rad/s^2
constexpr double kCapture = 0.10;       // s: foot placement per error of velocity
constexpr double kReach = 0.16;         // m, farthest step from where the foot rests
constexpr double kReachAside = 0.10;
constexpr double kTracking = 0.8;         // 1/s, integral gain on the velocity's error
constexpr double kMostCorrection = 0.15;  // m/s
constexpr double kMostTurning = 0.35;     // rad/s
constexpr double kSoft = 0.008;  // m below the ground at the swing's end: a foot that reaches it
constexpr int kRestCycles = 2;

double approach(double value, double target, double most) {
  return value + std::clamp(target - value, -most, most);
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

void Trot::slew(const Twist& target, double seconds) {
  velocity_.x = approach(velocity_.x, target.x, kLinearGrowth * seconds);
  velocity_.y = approach(velocity_.y, target.y, kLinearGrowth * seconds);
  velocity_.yaw = approach(velocity_.yaw, target.yaw, kAngularGrowth * seconds);
}

bool Trot::atRest() const {
  return velocity_.x == 0 && velocity_.y == 0 && velocity_.yaw == 0;
}

void Trot::step(bool wanted, const Twist& velocity, double stepHeight, const Estimate& seen,
                double seconds) {
  slew(wanted ? velocity : Twist{}, seconds);
  if (wanted && !stepping_) {
    stepping_ = true;
    cycle_ = 0;
    for (std::size_t leg = 0; leg < kLegs; ++leg) lifted_[leg] = feet_[leg].place;
  }
  if (wanted) restCycles_ = kRestCycles;
  if (!stepping_) {
    for (Foot& foot : feet_) foot.velocity = {}, foot.swings = false, foot.place[2] = 0;
    return;
  }
  const double yawRate = toLevel(seen.euler[0], seen.euler[1], seen.rates)[2];
  const auto track = [&](double& correction, double error, double most) {
    correction = std::clamp(correction + kTracking * error * seconds, -most, most);
  };
  track(correction_.x, velocity_.x - seen.velocity[0], kMostCorrection);
  track(correction_.y, velocity_.y - seen.velocity[1], kMostCorrection);
  track(correction_.yaw, velocity_.yaw - yawRate, kMostTurning);

  cycle_ += kFrequency * seconds;
  if (cycle_ >= 1) {
    cycle_ -= 1;
    if (!wanted && atRest() && --restCycles_ <= 0) {
      stepping_ = false;
      correction_ = {};
      for (Foot& foot : feet_) foot.velocity = {}, foot.swings = false, foot.place[2] = 0;
      return;
    }
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
  const Vector3 target{
      home[0] + std::clamp(x * kStanceSeconds / 2 + kCapture * (seen.velocity[0] - velocity_.x),
                           -kReach, kReach),
      home[1] + std::clamp(y * kStanceSeconds / 2 + kCapture * (seen.velocity[1] - velocity_.y),
                           -kReachAside, kReachAside),
      0};
  const double s = std::clamp(share, 0.0, 1.0);
  const double blend = s * s * (3 - 2 * s);
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
