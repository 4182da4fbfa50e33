#include "motion/MotionController.h"

#include <array>
#include <cmath>

#include "body/LegKinematics.h"

namespace orvane::robot {
namespace {

constexpr double kHeightReached = 0.004;  // m
constexpr double kStandstill = 0.005;     // m/s and rad/s

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
}};

bool standsStill(const Twist& velocity) {
  return std::abs(velocity.x) < kStandstill && std::abs(velocity.y) < kStandstill &&
         std::abs(velocity.yaw) < kStandstill;
}

}  // namespace

const char* nameOf(Posture posture) noexcept {
  constexpr std::array<const char*, kPostures> kNames{
      "lying",     "standingUp", "standing", "walking",       "stopping",
      "lyingDown", "recovering", "damped",   "emergencyStop", "lowLevel"};
  return kNames[static_cast<std::size_t>(posture)];
}

std::optional<Refusal> MotionController::start(Action action, const Twist& velocity,
                                               std::uint64_t nowMs) {
  const Cell& cell =
      kTransitions[static_cast<std::size_t>(posture_)][static_cast<std::size_t>(action)];
  if (cell.refusal != nullptr) return Refusal{Reason::kNotNow, cell.refusal};
  lieDownAfterStop_ = action == Action::kLaying;
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
  stayOff_ = false;
}

BodyCommand MotionController::step(const BodyState& body, std::uint64_t nowMs) {
  advance(body, nowMs);
  return command();
}

void MotionController::advance(const BodyState& body, std::uint64_t nowMs) {
  down_ = body.height < kLyingHeight + kHeightReached && standsStill(body.velocity);
  const bool up = std::abs(body.height - bodyHeight_) < kHeightReached;
  switch (posture_) {
    case Posture::kStandingUp:
      if (up) enter(Posture::kStanding);
      break;
    case Posture::kWalking:
      if (nowMs >= refreshedMs_ + kWalkRefreshMs) enter(Posture::kStopping);
      break;
    case Posture::kStopping:
      if (!standsStill(body.velocity)) break;
      enter(lieDownAfterStop_ ? Posture::kLyingDown : Posture::kStanding);
      lieDownAfterStop_ = false;
      break;
    case Posture::kLyingDown:
    case Posture::kDamped:
      if (down_ && !stayOff_) enter(Posture::kLying);
      break;
    case Posture::kRecovering:
      rising_ = rising_ || down_;
      if (rising_ && up) enter(Posture::kStanding);
      break;
    case Posture::kLying:
    case Posture::kStanding:
    case Posture::kEmergencyStop:
    case Posture::kLowLevel:
      break;
  }
}

BodyCommand MotionController::command() const {
  const bool damped = posture_ == Posture::kDamped || posture_ == Posture::kEmergencyStop;
  const bool low = posture_ == Posture::kLying || posture_ == Posture::kLyingDown ||
                   (posture_ == Posture::kRecovering && !rising_);
  BodyCommand command;
  command.powered = !damped;
  command.stepping = posture_ == Posture::kWalking;
  command.height = low ? kLyingHeight : bodyHeight_;
  command.stepHeight = stepHeight_;
  command.velocity = velocity_;
  return command;
}

}  // namespace orvane::robot
