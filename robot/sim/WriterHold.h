#pragma once

#include <cstdint>
#include <optional>

#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/Records.h"
#include "session/MotorControl.h"

namespace orvane::robot {

/// Which client on another machine commands the motors. Such a client asks nobody: the first whose
/// command is carried out has them for as long as its commands keep coming, alone, and whoever
/// wants them next gets them when it has been silent for MotorControl::kSilenceMs.
///
/// Not thread-safe: the robot mutex guards it. Times are milliseconds of the platform's clock.
/// Doesn't allocate.
class WriterHold {
 public:
  /// What became of a command of `writer`; one that was carried out begins or prolongs its hold.
  void note(RecordFate fate, std::uint64_t writer, std::uint64_t nowMs) {
    if (fate != RecordFate::kTaken) return counts_.refuse(fate);
    ++counts_.commands;
    writer_ = writer;
    untilMs_ = nowMs + MotorControl::kSilenceMs;
  }
  /// Ends the hold when its writer is silent.
  void judge(std::uint64_t nowMs) {
    if (nowMs >= untilMs_) end();
  }
  void end() { writer_.reset(); }

  [[nodiscard]] bool held() const { return writer_.has_value(); }
  [[nodiscard]] bool heldBy(std::uint64_t writer) const { return writer_ == writer; }
  [[nodiscard]] const RecordCounts& counts() const { return counts_; }

 private:
  std::optional<std::uint64_t> writer_;  // as DDS numbers it in this process
  std::uint64_t untilMs_ = 0;
  RecordCounts counts_;
};

/// The command in a sample, for MotorControl::check to judge. The sample's time says nothing here:
/// it is on another machine's clock.
[[nodiscard]] RobotSdk::LowLevelMotorRecord toMotorRecord(const msg::dds_::MotionCtrl_& sample);

}  // namespace orvane::robot
