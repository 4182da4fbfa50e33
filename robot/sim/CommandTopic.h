#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "RobotCore.h"
#include "faults/Voice.h"
#include "msg/MotionTypes.h"
#include "pbase/CThread.h"
#include "session/RefusalLog.h"

namespace orvane::robot {

/// Takes the motor commands of low-level clients on other machines from their topic, as they come.
///
/// Threading contract: made, started and destroyed on the owner's thread. The thread
/// "robot:commands" waits for samples inside DDS and sleeps while none come. It takes them out of
/// DDS first and then the robot mutex, once for at most kMostAtOnce of them, and holds nothing
/// else: however fast they come, the control loop and requests get their turn. It allocates to log
/// a refusal, at most once a second, and where a client gets or loses the motors, for the event
/// that tells of the new posture. A silent robot takes samples and forgets them.
class CommandTopic {
 public:
  /// `reliable`: hears clients only that write reliably. Throws dds::core::Exception.
  CommandTopic(const dds::domain::DomainParticipant& participant, const std::string& topic,
               bool reliable, std::shared_ptr<RobotCore> core, std::shared_ptr<Voice> voice);
  /// Returns when the thread has ended, within milliseconds.
  ~CommandTopic();
  CommandTopic(const CommandTopic&) = delete;
  CommandTopic& operator=(const CommandTopic&) = delete;

  /// False: no thread could be had.
  [[nodiscard]] bool start() { return thread_.createThread(); }

 private:
  using Sample = orvane::msg::dds_::MotionCtrl_;

  /// As many as wait in the reader at most.
  static constexpr std::size_t kMostAtOnce = 64;

  struct Received {
    Sample sample;
    std::uint64_t writer;
    RecordFate fate;
  };

  void run();
  void wait();
  /// Takes what is there into received_; returns how many of them the robot hears.
  [[nodiscard]] std::size_t receive();
  void carryOut(std::size_t count);

  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<Voice> voice_;
  std::atomic<bool> stopping_{false};
  dds::core::cond::GuardCondition stopAsked_;
  dds::sub::DataReader<Sample> reader_;
  dds::core::cond::WaitSet waitSet_;
  // The thread's own.
  dds::core::cond::ConditionSeq woken_;
  std::array<Received, kMostAtOnce> received_{};
  RefusalLog refusals_{"motor command from another machine at", " us of its clock"};
  Pexal::PBase::CThreadLite thread_;
};

}  // namespace orvane::robot
