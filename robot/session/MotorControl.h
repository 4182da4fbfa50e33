#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "body/Body.h"
#include "shm/MotionRecords.h"

namespace orvane::robot {

/// What becomes of one command to the motors, on the board's channel or from another machine.
enum class RecordFate {
  kTaken,
  kOtherSession,   ///< not the present session's, or there is none
  kOldNumber,      ///< its number isn't above the last one's
  kUnknownKind,    ///< or a stop that isn't one
  kBadMotorCount,  ///< outside 1 to 16
  kUnknownMotor,   ///< the robot has no such limb or joint
  kMotorTwice,     ///< two entries for one motor
  kBadValue,       ///< not finite, or negative where that has no meaning
  kDriveOff,
  kTooFar,  ///< the first command to a joint that stands elsewhere
  // Of commands from other machines only: who has the robot, and what it does.
  kOtherWriter,
  kControlHeld,
  kSessionHeld,
  kEmergencyStopped,
  kUnsettled,
};
inline constexpr std::size_t kRecordFates = 15;

/// Why a record was refused, for people; empty when it wasn't.
[[nodiscard]] const char* textOf(RecordFate fate) noexcept;

/// What came in since the session began; of clients on other machines, since the robot started.
struct RecordCounts {
  std::uint64_t commands = 0;  ///< motor commands carried out
  std::uint64_t refused = 0;   ///< records of any kind; without a session too
  std::uint64_t lost = 0;      ///< numbers that were left out; samples have none
  RecordFate lastRefusal = RecordFate::kTaken;

  void refuse(RecordFate fate) {
    ++refused;
    lastRefusal = fate;
  }
};

/// The motors while a client commands them one by one: in a session, or from another machine (see
/// WriterHold).
///
/// - Switched on, they hold the joints where they are, until the first command.
/// - A joint's first position command must lie within kFirstReach of where it is.
/// - A command holds until the next; when none comes for kSilenceMs the motors damp, and the next
///   command is a first one again.
/// - Joints that a command doesn't name go on as they were.
///
/// Not thread-safe: the robot mutex guards it. Times are milliseconds of the platform's clock.
/// Neither blocks nor allocates.
class MotorControl {
 public:
  enum class Mode {
    kOff,  ///< no drive: the motors brake by themselves
    kHolding,
    kFollowing,
    kDamping,  ///< with the drive on
  };
  static constexpr double kFirstReach = 0.3;  ///< rad
  static constexpr std::uint32_t kSilenceMs = 100;

  /// Of session `id` from now on (0: of none): counts, limits and numbers begin anew.
  void begin(std::uint64_t id);
  void switchOn(const BodyState& body);
  void switchOff();

  /// Carries out a record as far as it concerns the motors, or counts why not. A kRequireObserved
  /// that is kTaken is for the caller to answer.
  RecordFate take(const Robot::Motion::ShareLowLevelMotionCtrlData& record, const BodyState& body,
                  std::uint64_t nowMs);

  // Of clients without a session, and of both underneath.

  /// kTaken, or why the motors can't follow that command: its count, addresses or figures, or a
  /// joint that isn't where its first command begins. Changes nothing.
  [[nodiscard]] RecordFate check(const RobotSdk::LowLevelMotorRecord& command,
                                 const BodyState& body) const;
  /// Follows a command that has passed check(), with the drive on.
  void follow(const RobotSdk::LowLevelMotorRecord& command, std::uint64_t nowMs);

  /// What the motors do now. Its joints live as long as this and change with the next call.
  [[nodiscard]] BodyCommand step(std::uint64_t nowMs);

  [[nodiscard]] std::uint64_t session() const { return session_; }
  [[nodiscard]] Mode mode() const { return mode_; }
  [[nodiscard]] const RecordCounts& counts() const { return counts_; }

 private:
  using Record = Robot::Motion::ShareLowLevelMotionCtrlData;

  [[nodiscard]] RecordFate judge(const Record& record, const BodyState& body, std::uint64_t nowMs);
  [[nodiscard]] RecordFate limit(const RobotSdk::LowLevelMotorRecord& limits);
  void damp(Mode mode);

  std::uint64_t session_ = 0;
  Mode mode_ = Mode::kOff;
  JointCommands joints_{};
  std::array<bool, kJoints> follows_{};   // had a position command since it was held or damped
  std::array<double, kJoints> limits_{};  // N m
  std::uint64_t lastNumber_ = 0;
  std::uint64_t commandedMs_ = 0;
  RecordCounts counts_;
};

/// In documents and the status line.
[[nodiscard]] const char* nameOf(MotorControl::Mode mode) noexcept;

}  // namespace orvane::robot
