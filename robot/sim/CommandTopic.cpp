#include "sim/CommandTopic.h"

#include <exception>
#include <string>
#include <utility>

#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;

namespace policy = dds::core::policy;

/// All writers share one history: with fewer places one that floods the topic would displace the
/// commands of the one that is listened to.
constexpr std::int32_t kHistory = 64;
constexpr std::uint32_t kAfterFailureMs = 1000;

dds::sub::qos::DataReaderQos readerQos(bool reliable) {
  dds::sub::qos::DataReaderQos qos;
  qos << (reliable ? policy::Reliability::Reliable() : policy::Reliability::BestEffort())
      << policy::History::KeepLast(kHistory) << policy::Durability::Volatile();
  return qos;
}

}  // namespace

CommandTopic::CommandTopic(const dds::domain::DomainParticipant& participant,
                           const std::string& topic, bool reliable, std::shared_ptr<RobotCore> core,
                           std::shared_ptr<Voice> voice)
    : core_(std::move(core)),
      voice_(std::move(voice)),
      reader_(dds::sub::Subscriber(participant), dds::topic::Topic<Sample>(participant, topic),
              readerQos(reliable)),
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
      takeAll();
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

void CommandTopic::takeAll() {
  dds::sub::SampleInfo info;
  while (!stopping_ && reader_.take_into(&sample_, info)) {
    if (!info.valid() || voice_->isSilent()) continue;
    const RecordFate fate = core_->access().take(sample_, info.publication_handle());
    refusals_.note(fate, sample_.timestamp);
  }
}

}  // namespace orvane::robot
