#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "RobotCore.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "publish/Publisher.h"

namespace orvane::robot {

/// How the robot's time went beside the clock's.
struct Pace {
  double realTimeFactor = 1;  ///< time that passed for the robot, per time that passed; at most 1
  double latePercent = 0;     ///< share of the steps that ended after the next was due
  std::uint64_t steps = 0;
};

/// The robot's heartbeat: 500 times a second, or as often as a low-level session wants to see the
/// robot if that is more, it lets time pass for motion controller, motors and body and publishes
/// what can be seen. Paced by absolute deadlines, so that it doesn't drift; a short delay is caught
/// up with, after a long one (the process was stopped) the time is left out.
///
/// Threading contract: start and stop on the owner's thread. The thread "robot:loop" takes the
/// robot mutex for each step and doesn't hold it while it publishes. mutex_ guards stopping_ and is
/// taken with no other.
class ControlLoop {
 public:
  static constexpr std::uint32_t kLongestPeriodUs = 2000;

  /// All must outlive the loop. They publish in this order.
  ControlLoop(RobotCore& core, std::vector<Publisher*> publishers);
  ~ControlLoop() { stop(); }

  /// False: no thread could be had.
  [[nodiscard]] bool start() { return thread_.createThread(); }
  /// Returns when the loop has ended, within a few steps.
  void stop();
  /// Since the start. On any thread.
  [[nodiscard]] Pace pace() const;

 private:
  void run();
  void note(bool late, std::uint64_t simulatedUs, std::uint64_t passedUs);
  [[nodiscard]] bool waitUntil(std::uint64_t deadlineUs);

  RobotCore& core_;
  const std::vector<Publisher*> publishers_;
  Pexal::PBase::CMutex mutex_;
  Pexal::PBase::CCondition stopAsked_;
  bool stopping_ = false;
  // For pace(): written by the thread only, each by itself.
  std::atomic<std::uint64_t> steps_{0};
  std::atomic<std::uint64_t> lateSteps_{0};
  std::atomic<std::uint64_t> simulatedUs_{0};
  std::atomic<std::uint64_t> passedUs_{0};
  Pexal::PBase::CThreadLite thread_;
};

}  // namespace orvane::robot
