#pragma once

#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "faults/Voice.h"
#include "gamepad/PadSource.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"

namespace orvane::robot {

/// Shows the game pad to low-level clients on other machines: 50 samples a second while there is
/// one, touched or not, so that a client can tell it from one that is gone.
///
/// Threading contract: made, started and destroyed on the owner's thread. The thread
/// "robot:gamepad" reads the source and writes. mutex_ guards stopping_ and is taken with no other.
class GamepadTopic {
 public:
  static constexpr std::uint32_t kPeriodMs = 20;
  /// The `controller` of its samples.
  static constexpr std::uint64_t kController = 1;

  /// Throws dds::core::Exception.
  GamepadTopic(const dds::domain::DomainParticipant& participant, const std::string& topic,
               const dds::pub::qos::DataWriterQos& qos, std::unique_ptr<PadSource> source,
               std::shared_ptr<Voice> voice);
  /// Stops. The writer goes now unless its participant is closed already: up to a second while a
  /// client that reads reliably stands still.
  ~GamepadTopic() { stop(); }
  GamepadTopic(const GamepadTopic&) = delete;
  GamepadTopic& operator=(const GamepadTopic&) = delete;

  /// False: no thread could be had.
  [[nodiscard]] bool start() { return thread_.createThread(); }
  /// Shows nothing any more; returns when the thread has ended, within milliseconds.
  void stop();

 private:
  void run();
  void publish(PadState& state);

  const std::unique_ptr<PadSource> source_;
  const std::shared_ptr<Voice> voice_;
  dds::pub::DataWriter<PadState> writer_;
  std::uint64_t reportedMs_ = 0;  // the thread's own
  Pexal::PBase::CMutex mutex_;    // guards stopping_
  Pexal::PBase::CCondition stopAsked_;
  bool stopping_ = false;
  Pexal::PBase::CThreadLite thread_;
};

}  // namespace orvane::robot
