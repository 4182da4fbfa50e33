#include "gamepad/GamepadTopic.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>

#include "faults/Nonsense.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

constexpr std::uint64_t kPeriodUs = GamepadTopic::kPeriodMs * 1000ULL;
constexpr std::uint64_t kReportEveryMs = 1000;

}  // namespace

GamepadTopic::GamepadTopic(const dds::domain::DomainParticipant& participant,
                           const std::string& topic, const dds::pub::qos::DataWriterQos& qos,
                           std::unique_ptr<PadSource> source, std::shared_ptr<Voice> voice)
    : source_(std::move(source)),
      voice_(std::move(voice)),
      writer_(dds::pub::Publisher(participant), dds::topic::Topic<PadState>(participant, topic),
              qos),
      thread_("robot:gamepad", 0, 0, 0, [this] { run(); }) {}

void GamepadTopic::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopAsked_.notifyAll();
  while (!thread_.isThreadOver()) CThread::sleep(1);
}

void GamepadTopic::run() {
  std::uint64_t deadlineUs = CTime::getCurrentMicroSecond();
  for (;;) {
    PadState state{};
    if (source_->poll(CTime::getCurrentMilliSecond(), state)) publish(state);
    // What a pause of the process made late is left out.
    deadlineUs = std::max(deadlineUs + kPeriodUs, CTime::getCurrentMicroSecond());
    std::unique_lock lock(mutex_);
    if (stopAsked_.waitUntil(lock, deadlineUs, [this] { return stopping_; })) return;
  }
}

void GamepadTopic::publish(PadState& state) {
  if (voice_->isSilent()) return;
  state.controller = kController;
  state.timestamp = CTime::getCurrentMicroSecond();
  if (voice_->talksNonsense()) spoil(state, voice_->nextTurn());
  try {
    writer_.write(state);
  } catch (const std::exception& failure) {
    const std::uint64_t nowMs = CTime::getCurrentMilliSecond();
    if (nowMs < reportedMs_ + kReportEveryMs) return;
    reportedMs_ = nowMs;
    Pexal::ILogger::instance()->log(3, "VirtualRobot", "game pad not shown: %s\n", failure.what());
  }
}

}  // namespace orvane::robot
