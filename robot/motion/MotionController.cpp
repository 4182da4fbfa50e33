#include "motion/MotionController.h"

#include <array>
#include <cmath>

#include "body/LegKinematics.h"

namespace orvane::robot {
namespace {

constexpr double kHeightReached = 0.012;          // m
constexpr std::uint64_t kMostRecoveryMs = 20000;  // then it has fallen for good

/// What an action leads to in a posture: the next posture, or a refusal.
struct Cell {
  Posture next;
  const char* refusal;
};
constexpr Cell to(Posture posture) {
  return {posture, nullptr};
}
constexpr Cell no(const char* why) {
  return {Posture::kLying, why};
}

constexpr auto kLying = to(Posture::kLying);
constexpr auto kStandingUp = to(Posture::kStandingUp);
constexpr auto kStanding = to(Posture::kStanding);
constexpr auto kWalking = to(Posture::kWalking);
constexpr auto kStopping = to(Posture::kStopping);
constexpr auto kLyingDown = to(Posture::kLyingDown);
constexpr auto kRecovering = to(Posture::kRecovering);
constexpr auto kDamped = to(Posture::kDamped);
constexpr auto kStopped = to(Posture::kEmergencyStop);
constexpr auto kFallen = to(Posture::kFallen);
constexpr auto kOnSide = no("the robot has fallen; recoveryStand gets it up");
constexpr auto kLatched = no("an emergency stop is latched; recoveryStand lifts it");
constexpr auto kAway = no("a low-level session commands the motors");

// Rows as Posture, columns as Action: standing, laying, recoveryStand, disableAction, walking,
// stop, emergency stop.
constexpr std::array<std::array<Cell, kActions>, kPostures> kTransitions{{
    {kStandingUp, kLying, kRecovering, kDamped, no("the robot is lying; it must stand to walk"),
     kLying, kStopped},
    {kStandingUp, kLyingDown, kStandingUp, kDamped, no("the robot is still standing up"),
     kStandingUp, kStopped},
    {kStanding, kLyingDown, kStanding, kDamped, kWalking, kStanding, kStopped},
    {kStopping, kStopping, kStopping, kDamped, kWalking, kStopping, kStopped},
    {kStopping, kStopping, kStopping, kDamped, kWalking, kStopping, kStopped},
    {kStandingUp, kLyingDown, kStandingUp, kDamped,
     no("the robot is lying down; it must stand to walk"), kLyingDown, kStopped},
    {kRecovering, kLyingDown, kRecovering, kDamped, no("the robot is still recovering"),
     kRecovering, kStopped},
    {kStandingUp, kDamped, kRecovering, kDamped,
     no("the motors are disabled; the robot must stand to walk"), kDamped, kStopped},
    {kLatched, kLatched, kRecovering, kStopped, kLatched, kStopped, kStopped},
    {kAway, kAway, kAway, kAway, kAway, kAway, kStopped},
    {kOnSide, kOnSide, kRecovering, kFallen, kOnSide, kFallen, kStopped},
}};

}  // namespace

const char* nameOf(Posture posture) noexcept {
  constexpr std::array<const char*, kPostures> kNames{
      "lying",      "standingUp", "standing",      "walking",  "stopping", "lyingDown",
      "recovering", "damped",     "emergencyStop", "lowLevel", "fallen"};
  return kNames[static_cast<std::size_t>(posture)];
}

std::optional<Refusal> MotionController::start(Action action, const Twist& velocity,
                                               std::uint64_t nowMs) {
  const Cell& cell =
      kTransitions[static_cast<std::size_t>(posture_)][static_cast<std::size_t>(action)];
  const char* why = cell.refusal;
  // Half way through a recovery it may lie on its belly already, or not.
  if (why == nullptr && fallen_ && cell.next == Posture::kLyingDown) why = kOnSide.refusal;
  if (why != nullptr) return Refusal{Reason::kNotNow, why};
  lieDownAfterStop_ = action == Action::kLaying;
  if (cell.next != posture_ || action == Action::kLaying) stayOff_ = false;
  if (cell.next == Posture::kRecovering && posture_ != cell.next) recoveringSinceMs_ = nowMs;
  if (cell.next != posture_) enter(cell.next);
  if (cell.next == Posture::kWalking) {
    velocity_ = velocity;
    refreshedMs_ = nowMs;
  }
  return std::nullopt;
}

void MotionController::endMotion() {
  if (posture_ == Posture::kWalking) enter(Posture::kStopping);
}

void MotionController::leaveLowLevel(bool stayOff) {
  if (posture_ != Posture::kLowLevel) return;
  enter(Posture::kDamped);
  stayOff_ = stayOff;
}

void MotionController::enter(Posture posture) {
  posture_ = posture;
  velocity_ = {};
  rising_ = false;
}

BodyCommand MotionController::step(const BodyState& body, std::uint64_t nowMs) {
  advance(body, nowMs);
  return command();
}

void MotionController::advance(const BodyState& body, std::uint64_t nowMs) {
  down_ = body.down;
  fallen_ = body.fallen;
  if (fallen_ && carriesItself()) enter(Posture::kFallen);
  const bool up = std::abs(body.height - bodyHeight_) < kHeightReached;
  switch (posture_) {
    case Posture::kStandingUp:
      if (up) enter(Posture::kStanding);
      break;
    case Posture::kWalking:
      if (nowMs >= refreshedMs_ + kWalkRefreshMs) enter(Posture::kStopping);
      break;
    case Posture::kStopping:
      if (!body.still) break;
      enter(lieDownAfterStop_ ? Posture::kLyingDown : Posture::kStanding);
      lieDownAfterStop_ = false;
      break;
    case Posture::kLyingDown:
    case Posture::kDamped:
      if (down_ && !stayOff_) enter(Posture::kLying);
      break;
    case Posture::kRecovering:
      rising_ = rising_ || down_;
      if (rising_ && up) {
        enter(Posture::kStanding);
      } else if (nowMs >= recoveringSinceMs_ + kMostRecoveryMs) {
        enter(Posture::kFallen);
      }
      break;
    case Posture::kFallen:
      if (down_) enter(stayOff_ ? Posture::kDamped : Posture::kLying);
      break;
    case Posture::kLying:
    case Posture::kStanding:
    case Posture::kEmergencyStop:
    case Posture::kLowLevel:
      break;
  }
}

bool MotionController::carriesItself() const {
  switch (posture_) {
    case Posture::kLying:
    case Posture::kStandingUp:
    case Posture::kStanding:
    case Posture::kWalking:
    case Posture::kStopping:
    case Posture::kLyingDown:
    case Posture::kDamped:
      return true;
    case Posture::kRecovering:
      return rising_;
    case Posture::kEmergencyStop:
    case Posture::kLowLevel:
    case Posture::kFallen:
      return false;
  }
  return false;
}

BodyCommand MotionController::command() const {
  const bool damped = posture_ == Posture::kDamped || posture_ == Posture::kEmergencyStop ||
                      posture_ == Posture::kFallen;
  const bool low = posture_ == Posture::kLying || posture_ == Posture::kLyingDown ||
                   (posture_ == Posture::kRecovering && !rising_);
  BodyCommand command;
  command.powered = !damped;
  command.stepping = posture_ == Posture::kWalking;
  command.height = low ? kLyingHeight : bodyHeight_;
  command.stepHeight = stepHeight_;
  command.velocity = velocity_;
  command.recover = posture_ == Posture::kRecovering && !rising_;
  return command;
}

}  // namespace orvane::robot
