#include "locomotion/Recovery.h"

#include <algorithm>
#include <cmath>

#include "body/Ease.h"
#include "body/LegKinematics.h"

namespace orvane::robot {
namespace {

constexpr double kTilted = 0.6;         // rad of roll from which the belly isn't below
constexpr double kNearlyUpright = 0.9;  // rad: folding the legs does the rest
constexpr double kOnBack = 2.2;         // rad of roll from which it lies on its back
constexpr double kTuckSeconds = 0.8;
constexpr double kPushSeconds = 0.45;
constexpr double kFoldSeconds = 0.9;
constexpr double kRestSeconds = 0.35;  // behind each motion, for what it set going

// Poses of a leg: hip (positive: outwards, away from the robot), thigh, calf, rad.
constexpr LegAngles kStretched{0.8, 3.0, -0.55};  // up, past the back
constexpr LegAngles kTurnedBack{-0.2, 3.0, -2.6};
constexpr LegAngles kOutOfTheWay{0.2, 1.0, -2.6};
constexpr LegAngles kDrawnIn{0.4, 3.0, -2.7};
constexpr LegAngles kSwungOut{-0.9, 3.0, -0.9};
constexpr LegAngles kTucked{0, 1.2, -2.7};
constexpr LegAngles kHanging{-0.5, 1.2, -2.2};

/// As if it lay on its belly.
LegAngles folded(std::size_t leg) {
  return legAngles(leg, {0, sideOf(leg) * kGeometry.hipLength, kFootRadius - kLyingHeight});
}

}  // namespace

void Recovery::begin(const Angles& now) {
  now_ = now;
  phase_ = Phase::kDone;
  since_ = length_ = 0;
}

void Recovery::enter(Phase phase, const Angles& target, double seconds) {
  phase_ = phase;
  from_ = now_;
  target_ = target;
  since_ = 0;
  length_ = seconds;
}

namespace {

/// One pose for the legs of the one side, and one for those of the other.
Recovery::Angles pose(double side, const LegAngles& thisSide, const LegAngles& otherSide) {
  Recovery::Angles angles{};
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const LegAngles& wanted = sideOf(leg) == side ? thisSide : otherSide;
    const std::size_t first = leg * kJointsPerLeg;
    angles[first] = sideOf(leg) * wanted[0];  // outwards
    angles[first + 1] = wanted[1];
    angles[first + 2] = wanted[2];
  }
  return angles;
}

}  // namespace

void Recovery::next(const Estimate& seen) {
  const double roll = seen.euler[0];
  const double lower = roll > 0 ? -1 : 1;  // roll above 0: the left side is up
  switch (phase_) {
    case Phase::kReach:  // legs of the upper side stretch against the ground
      return enter(Phase::kHeave, pose(-side_, kStretched, kOutOfTheWay), kPushSeconds);
    case Phase::kTuck:  // legs below swing outwards against the ground
      return enter(Phase::kPush, pose(side_, kSwungOut, kTucked), kPushSeconds);
    default:
      break;
  }
  const double most = phase_ == Phase::kFold ? kTilted : kNearlyUpright;
  const bool upright = std::abs(roll) < most && std::abs(seen.euler[1]) < kTilted;
  if (upright && phase_ == Phase::kFold) {
    phase_ = Phase::kDone;
  } else if (upright) {
    enter(Phase::kFold, pose(1, folded(0), folded(0)), kFoldSeconds);
  } else if (std::abs(roll) > kOnBack) {
    side_ = lower;
    enter(Phase::kReach, pose(-side_, kTurnedBack, kOutOfTheWay), kTuckSeconds);
  } else {
    // Legs that just heaved it up hold it there.
    const LegAngles above = phase_ == Phase::kHeave ? kStretched : kHanging;
    side_ = lower;
    enter(Phase::kTuck, pose(side_, kDrawnIn, above), kTuckSeconds);
  }
}

const Recovery::Angles& Recovery::step(const Estimate& seen, double seconds) {
  if (phase_ == Phase::kDone && length_ > 0) return now_;
  since_ += seconds;
  if (length_ == 0 || since_ >= length_ + kRestSeconds) {
    const bool begins = length_ == 0;
    if (begins) phase_ = Phase::kPush;
    next(seen);
  }
  const double share = length_ > 0 ? std::clamp(since_ / length_, 0.0, 1.0) : 1;
  const double blend = smoothStep(share);
  if (phase_ != Phase::kDone) {
    for (std::size_t joint = 0; joint < kJoints; ++joint) {
      now_[joint] = from_[joint] + (target_[joint] - from_[joint]) * blend;
    }
  }
  return now_;
}

}  // namespace orvane::robot
