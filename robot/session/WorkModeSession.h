#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <variant>

#include "Refusal.h"

namespace orvane::robot {

/// One client's right to command the motors one by one.
struct WorkMode {
  enum class Drive {
    kOff,
    kPoweringUp,  ///< asked for, not there yet
    kOn,          ///< the session's commands reach the motors
  };

  std::uint64_t id = 0;   ///< the session's number; every session has a new one
  std::string holder;     ///< under which id it was taken
  std::string takeToken;  ///< the client's own, by which it is known again
  std::uint32_t observedHz = 0;
  std::uint32_t leaseMs = 0;
  std::uint64_t untilMs = 0;  ///< ends when the clock reaches this
  Drive drive = Drive::kOff;
  std::uint64_t poweredMs = 0;  ///< when the drive is powered up, kPoweringUp
  bool motionRestored = false;  ///< motion is with the robot's own controller again
};

/// Judges who commands the robot's motors one by one, alone and on the robot's clock. At most one
/// session holds at a time; it and the control of motion as a whole (Arbiter) exclude each other,
/// which is for whoever holds both to see to: claimsMotion().
///
/// Not thread-safe: the robot mutex guards it. Times are milliseconds of the platform's clock.
/// Every operation first ends what has run out by `nowMs`. Numbers are never used again, not by the
/// robot's next process either.
class WorkModeSession {
 public:
  static constexpr std::uint32_t kMinLeaseMs = 1000;
  static constexpr std::uint32_t kMaxLeaseMs = 600000;
  static constexpr std::uint32_t kDefaultLeaseMs = 60000;
  static constexpr std::uint32_t kMinHz = 1;
  static constexpr std::uint32_t kMaxHz = 1000;
  static constexpr std::uint32_t kDefaultHz = 500;
  /// How long the drive takes to power up.
  static constexpr std::uint32_t kPowerUpMs = 300;

  /// How a session comes to its end.
  enum class End { kReleased, kExpired, kRevoked, kReplaced, kEmergencyStop };

  /// What a client asks for; what lies outside the limits is brought within them.
  struct Wish {
    std::string holder;
    std::string takeToken;
    std::optional<std::uint32_t> observedHz;
    std::optional<std::uint32_t> leaseMs;
  };

  /// `lastId`: sessions are numbered from the next number on (default: a random one far apart).
  explicit WorkModeSession(std::optional<std::uint64_t> lastId = {});

  /// Grants a session when there is none. The one that has the same token is replaced: its client
  /// didn't hear of it.
  [[nodiscard]] std::variant<WorkMode, Refusal> take(const Wish& wish, std::uint64_t nowMs);
  /// Nothing when it is the present session's number; else kNoSession and why.
  [[nodiscard]] std::optional<Refusal> check(std::uint64_t id, std::uint64_t nowMs);
  /// Lets the lease begin anew.
  [[nodiscard]] std::optional<Refusal> renew(std::uint64_t id, std::uint64_t nowMs);
  /// Ends the session.
  [[nodiscard]] std::optional<Refusal> finish(std::uint64_t id, End how, std::uint64_t nowMs);

  /// Wants the drive on or off. True: it is. False: it powers up, ask again; it is on with the
  /// first call after kPowerUpMs for which the robot has `settled`: stands, lies or is driven by
  /// the session already. Motion is the session's from then on.
  [[nodiscard]] std::variant<bool, Refusal> prepare(std::uint64_t id, bool enable, bool settled,
                                                    std::uint64_t nowMs);
  /// Gives motion back to the robot's own controller; not while the drive is on. One that powers
  /// up is off again. The session stays.
  [[nodiscard]] std::optional<Refusal> restoreMotion(std::uint64_t id, std::uint64_t nowMs);

  /// Ends what has run out.
  void judge(std::uint64_t nowMs);
  /// Ends the present session, if there is one. False: there is none.
  bool end(End how);

  /// The session that holds; none: nobody commands the motors.
  [[nodiscard]] const std::optional<WorkMode>& current() const { return current_; }
  /// Nobody else may move the robot.
  [[nodiscard]] bool claimsMotion() const { return current_ && !current_->motionRestored; }
  [[nodiscard]] bool driveIsOn() const {
    return current_ && current_->drive == WorkMode::Drive::kOn;
  }

 private:
  struct Ended {
    std::uint64_t id;
    End how;
  };

  [[nodiscard]] std::string endOf(std::uint64_t id) const;

  std::uint64_t lastId_;
  std::optional<WorkMode> current_;
  std::deque<Ended> ended_;  // the latest ones, newest last
};

}  // namespace orvane::robot
