#include "sim/CommandTopic.h"

#include <cstdint>
#include <exception>
#include <span>
#include <utility>

#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;

namespace policy = dds::core::policy;

constexpr std::uint32_t kAfterFailureMs = 1000;

/// All writers share one history: with few `places` one that floods the topic would displace the
/// commands of the one that is listened to.
dds::sub::qos::DataReaderQos readerQos(bool reliable, std::int32_t places) {
  dds::sub::qos::DataReaderQos qos;
  qos << (reliable ? policy::Reliability::Reliable() : policy::Reliability::BestEffort())
      << policy::History::KeepLast(places) << policy::Durability::Volatile();
  return qos;
}

}  // namespace

CommandTopic::CommandTopic(const dds::domain::DomainParticipant& participant,
                           const std::string& topic, bool reliable, std::shared_ptr<RobotCore> core,
                           std::shared_ptr<Voice> voice)
    : core_(std::move(core)),
      voice_(std::move(voice)),
      reader_(dds::sub::Subscriber(participant), dds::topic::Topic<Sample>(participant, topic),
              readerQos(reliable, kMostAtOnce)),
      thread_("robot:commands", 0, 0, 0, [this] { run(); }) {
  waitSet_ += dds::sub::cond::ReadCondition(reader_);
  waitSet_ += stopAsked_;
}

CommandTopic::~CommandTopic() {
  stopping_ = true;
  try {
    stopAsked_.trigger_value(true);
  } catch (const std::exception&) {
    // The thread looks by itself once a second.
  }
  thread_.cancelThread();
}

void CommandTopic::run() {
  while (!stopping_) {
    try {
      wait();
      carryOut(receive());
    } catch (const std::exception& failure) {
      if (stopping_) return;
      Pexal::ILogger::instance()->log(3, "VirtualRobot", "motor commands not read: %s\n",
                                      failure.what());
      CThread::sleep(kAfterFailureMs);
    }
  }
}

void CommandTopic::wait() {
  const Pexal::PBase::ExternalWait blocked;
  waitSet_.wait(woken_, dds::core::Duration(1, 0));
}

std::size_t CommandTopic::receive() {
  std::size_t count = 0;
  dds::sub::SampleInfo info;
  for (std::size_t taken = 0; taken < kMostAtOnce; ++taken) {
    Received& next = received_[count];
    if (!reader_.take_into(&next.sample, info)) break;
    if (!info.valid() || voice_->isSilent()) continue;
    next.writer = info.publication_handle();
    ++count;
  }
  return count;
}

void CommandTopic::carryOut(std::size_t count) {
  if (count == 0) return;
  const std::span received(received_.data(), count);
  {
    RobotCore::Access robot = core_->access();
    for (Received& command : received) command.fate = robot.take(command.sample, command.writer);
  }
  for (const Received& command : received) refusals_.note(command.fate, command.sample.timestamp);
}

}  // namespace orvane::robot
