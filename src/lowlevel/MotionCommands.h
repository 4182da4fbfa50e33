#pragma once

#include <atomic>
#include <cstdint>

#include "lowlevel/LowLevelStatus.h"
#include "lowlevel/MotionChannels.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk::lowlevel {

/// What a control loop calls: sends control records and waits for observed ones. What is refused
/// leaves an error code; refusals are logged once a second at the most.
///
/// Threading contract: any thread. No mutex and no allocation; no system call either, unless a
/// reader of the control channel sleeps, all its chunks are taken, or a wait lasts longer than some
/// microseconds. Sends and requireObserved exclude each other through the gate; requireSensor runs
/// beside them.
class MotionCommands {
 public:
  MotionCommands(LowLevelStatus& status, MotionChannels& channels)
      : status_(status), channels_(channels) {}
  MotionCommands(const MotionCommands&) = delete;
  MotionCommands& operator=(const MotionCommands&) = delete;

  // See IMotionLowLevelClient.
  bool publishMotorAction(const LowLevelMotorRecord* motors, const LowLevelTrailer* trailer);
  bool publishMaxTorque(const LowLevelMotorRecord* motors);
  bool requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs);
  bool requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs);

  /// The worker's: a command without motors, for the session whose drive was switched off. Leaves
  /// the error code as it is.
  [[nodiscard]] bool publishStoppedCmd(std::uint64_t sessionId);

 private:
  struct Order;
  struct Wait;

  [[nodiscard]] bool send(const LowLevelMotorRecord* motors, const Order& order);
  // These give the reason for which they failed, null when they didn't. It is logged when gate and
  // reader are free again: the application's logger callback may take its time.
  [[nodiscard]] const char* write(const LowLevelMotorRecord& motors, const Order& order,
                                  std::uint64_t sessionId);
  [[nodiscard]] const char* writeStop(std::uint64_t sessionId);
  [[nodiscard]] const char* writeRequest(std::uint32_t waitUs, std::uint64_t& base);
  template <class Record>
  [[nodiscard]] const char* awaitNewer(const Wait& wait, MotionChannels::Reader& reader,
                                       std::uint64_t base, Record* out);

  // These leave an error, tell of it, or both, and give false.
  [[nodiscard]] bool refuse(std::uint32_t code, const char* reason);
  [[nodiscard]] bool rejectSend(const char* reason);
  [[nodiscard]] bool rejectObserved(const char* reason);
  [[nodiscard]] bool rejectWait(const char* what, const char* reason);

  const char* failed(std::uint32_t code, const char* reason);

  LowLevelStatus& status_;
  MotionChannels& channels_;
  std::atomic<std::uint64_t> lastRejectLogMs_{0};
  std::atomic<std::uint64_t> lastObservedRejectLogMs_{0};
};

}  // namespace orvane::RobotSdk::lowlevel
