#pragma once

#include <atomic>
#include <dds/dds.hpp>
#include <memory>

#include "RobotCore.h"
#include "faults/Voice.h"
#include "msg/MotionTypes.h"
#include "pbase/CThread.h"
#include "session/RefusalLog.h"

namespace orvane::robot {

/// Takes the motor commands of low-level clients on other machines from their topic, as they come.
///
/// Threading contract: made, started and destroyed on the owner's thread. The thread
/// "robot:commands" waits for samples inside DDS, takes the robot mutex for each and holds nothing
/// else; it sleeps while none come, and allocates only to log a refusal, at most once a second. A
/// silent robot takes samples and forgets them.
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

  void run();
  void wait();
  void takeAll();

  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<Voice> voice_;
  std::atomic<bool> stopping_{false};
  dds::core::cond::GuardCondition stopAsked_;
  dds::sub::DataReader<Sample> reader_;
  dds::core::cond::WaitSet waitSet_;
  // The thread's own.
  dds::core::cond::ConditionSeq woken_;
  Sample sample_{};
  RefusalLog refusals_{"motor command from another machine at"};
  Pexal::PBase::CThreadLite thread_;
};

}  // namespace orvane::robot
