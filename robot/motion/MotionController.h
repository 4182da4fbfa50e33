#pragma once

#include <cstdint>
#include <optional>

#include "Refusal.h"
#include "body/Body.h"
#include "motion/MotionLimits.h"

namespace orvane::robot {

/// What the robot is doing.
enum class Posture {
  kLying,
  kStandingUp,
  kStanding,
  kWalking,
  kStopping,  ///< slows down to a standstill
  kLyingDown,
  kRecovering,     ///< folds its legs, then stands up, from whatever pose
  kDamped,         ///< motors only damp; lies at the end
  kEmergencyStop,  ///< as kDamped, but stays so until it is told to recover
  kLowLevel,       ///< a low-level session commands the motors one by one
  kFallen,         ///< lies on its side or back; motors only damp
};
inline constexpr std::size_t kPostures = 11;

/// What the robot can be asked to do.
enum class Action {
  kStanding,
  kLaying,
  kRecoveryStand,
  kDisable,
  kWalking,
  kStop,
  kEmergencyStop,
};
inline constexpr std::size_t kActions = 7;

/// The name of a posture in documents, events and the status line.
[[nodiscard]] const char* nameOf(Posture posture) noexcept;

/// Decides which action is possible in which posture and leads the body through it. Laying down
/// while walking first stops; an emergency stop latches until kRecoveryStand; a walk whose command
/// isn't refreshed within kWalkRefreshMs stops; a recovery that takes longer than 20 s ends in
/// kFallen, from where another may be tried.
///
/// Not thread-safe: the robot mutex guards it. Times are milliseconds of the platform's clock.
class MotionController {
 public:
  /// Carries out `action`, or says why that isn't possible now (and changes nothing). Accepted
  /// means begun; posture() tells when it is reached. `velocity` is used by kWalking only and must
  /// lie within the limits.
  [[nodiscard]] std::optional<Refusal> start(Action action, const Twist& velocity,
                                             std::uint64_t nowMs);
  /// The controller is gone: a walk stops. A change of posture under way goes on to its end, for
  /// half way is no safe place.
  void endMotion();
  /// Leaves the body to a low-level session. The caller sees to it that the posture is settled.
  void enterLowLevel() { enter(Posture::kLowLevel); }
  /// Takes the body back: its motors damp. With `stayOff` they go on so when it lies, until it is
  /// told to stand, lie or recover. Nothing happens when it wasn't given away.
  void leaveLowLevel(bool stayOff);
  /// Takes effect at once while standing or walking, else when the robot stands next. In m, within
  /// the limits.
  void setBodyHeight(double height) { bodyHeight_ = height; }
  void setStepHeight(double height) { stepHeight_ = height; }

  /// Moves on with what the body has reached; gives the body's next command (which is for nobody
  /// in kLowLevel).
  [[nodiscard]] BodyCommand step(const BodyState& body, std::uint64_t nowMs);

  [[nodiscard]] Posture posture() const { return posture_; }
  /// No change of posture is under way.
  [[nodiscard]] bool settled() const {
    return posture_ == Posture::kLying || posture_ == Posture::kStanding ||
           posture_ == Posture::kLowLevel || posture_ == Posture::kFallen ||
           (posture_ == Posture::kDamped && down_);
  }
  [[nodiscard]] bool emergencyStopped() const { return posture_ == Posture::kEmergencyStop; }
  /// The walking command in force; all zero when the robot isn't walking.
  [[nodiscard]] const Twist& commanded() const { return velocity_; }
  [[nodiscard]] double bodyHeight() const { return bodyHeight_; }
  [[nodiscard]] double stepHeight() const { return stepHeight_; }

 private:
  void enter(Posture posture);
  void advance(const BodyState& body, std::uint64_t nowMs);
  [[nodiscard]] bool carriesItself() const;
  [[nodiscard]] BodyCommand command() const;

  Posture posture_ = Posture::kLying;
  bool lieDownAfterStop_ = false;
  bool rising_ = false;   // second half of recovering
  bool down_ = false;     // lies still, whatever the posture
  bool fallen_ = false;   // tilted, whatever the posture
  bool stayOff_ = false;  // of kDamped and kFallen: the motors aren't switched on by lying down
  Twist velocity_;
  std::uint64_t refreshedMs_ = 0;
  std::uint64_t recoveringSinceMs_ = 0;
  double bodyHeight_ = kBodyHeight.initial;
  double stepHeight_ = kStepHeight.initial;
};

}  // namespace orvane::robot
