#include "faults/Faults.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <variant>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

constexpr const char* kTag = "VirtualRobot";
constexpr std::uint64_t kIdleUs = 60'000'000;
constexpr std::uint32_t kWarning = 3;

std::string stateText(Fault fault, std::uint64_t leftMs) {
  FaultCommand command;
  command.fault = fault;
  command.ms = leftMs == Voice::kForever ? 0 : static_cast<std::uint32_t>(leftMs);
  return textOf(command);
}

}  // namespace

Faults::Faults(std::shared_ptr<RobotCore> core, std::shared_ptr<RequestServer> server)
    : core_(std::move(core)),
      voice_(std::make_shared<Voice>()),
      requests_(std::move(server), voice_),
      thread_("robot:faults", 0, 0, 0, [this] { run(); }) {}

Faults::Outcome Faults::applyAll(const std::vector<std::string>& texts) {
  Outcome outcome;
  std::vector<FaultCommand> commands;
  for (const std::string& text : texts) {
    ParsedFault parsed = parseFault(text, &RequestServer::isMethod);
    if (auto* error = std::get_if<std::string>(&parsed)) {
      outcome.error = std::move(*error);
      return outcome;
    }
    commands.push_back(std::get<FaultCommand>(std::move(parsed)));
  }
  for (const FaultCommand& command : commands) {
    Answer answer = command.afterMs > 0 ? schedule(command) : carryOut(command);
    if (!answer.done) {
      outcome.error = textOf(command) + ": " + answer.text;
      return outcome;
    }
    outcome.answers.push_back(std::move(answer.text));
  }
  outcome.done = true;
  return outcome;
}

Faults::Answer Faults::schedule(const FaultCommand& command) {
  if (command.fault == Fault::kDie && !end_) return die();
  const std::uint64_t dueUs = CTime::getCurrentMicroSecond() + command.afterMs * 1000ULL;
  {
    const std::lock_guard lock(mutex_);
    if (stopping_) return {false, kRobotEnds};
    if (timed_.size() == kMostTimed) return {false, "too many timed faults"};
    const auto later = std::find_if(timed_.begin(), timed_.end(),
                                    [&](const Timed& other) { return other.dueUs > dueUs; });
    timed_.insert(later, {dueUs, command});
  }
  changed_.notifyAll();
  return {true, "after " + std::to_string(command.afterMs) + ' ' + textOf(command)};
}

Faults::Answer Faults::carryOut(const FaultCommand& command) {
  switch (command.fault) {
    case Fault::kRefuse:
    case Fault::kDelay:
    case Fault::kDrop:
    case Fault::kWithhold:
      if (auto refusal = requests_.add(command)) return {false, *std::move(refusal)};
      break;
    case Fault::kPreempt:
    case Fault::kRestore:
    case Fault::kRevoke:
    case Fault::kExpire:
    case Fault::kEndSession:
      return changeControl(command);
    case Fault::kSilent:
      voice_->silence(command.ms);
      break;
    case Fault::kSpeak:
      voice_->speak();
      break;
    case Fault::kNonsense:
      voice_->talkNonsense(command.ms);
      break;
    case Fault::kSense:
      voice_->makeSense();
      break;
    case Fault::kDie:
      return die();
    case Fault::kClear:
      clear();
      break;
    case Fault::kList:
      return {true, list()};
  }
  return {true, textOf(command)};
}

Faults::Answer Faults::changeControl(const FaultCommand& command) {
  RobotCore::Access robot = core_->access();
  Arbiter& arbiter = robot.arbiter();
  const char* const kNobody = "nobody holds control";
  switch (command.fault) {
    case Fault::kPreempt: {
      const std::uint32_t leaseMs = command.ms > 0 ? command.ms : Arbiter::kDefaultLeaseMs;
      const Grant& grant = arbiter.preempt(command.name, leaseMs, robot.nowMs());
      return {true, "control is with " + grant.holder + " for " + std::to_string(grant.leaseMs) +
                        " ms, controller " + grant.controller};
    }
    case Fault::kRestore:
      if (!arbiter.restore(robot.nowMs())) return {false, "nobody was preempted"};
      return {true, "control is with " + arbiter.current()->holder + " again"};
    case Fault::kExpire:
      if (!arbiter.expire(robot.nowMs())) return {false, kNobody};
      return {true, "the lease has run out"};
    case Fault::kEndSession:
      if (!robot.session().end(WorkModeSession::End::kRevoked)) {
        return {false, "there is no low-level session"};
      }
      return {true, "the low-level session is ended"};
    default:
      if (!arbiter.revoke(robot.nowMs())) return {false, kNobody};
      return {true, "control is revoked"};
  }
}

// A moment later, so that whoever asks for it still hears that it was heard.
Faults::Answer Faults::die() {
  if (!end_) return {false, "this robot lives inside another program and can't die by itself"};
  {
    const std::lock_guard lock(mutex_);
    if (stopping_) return {false, kRobotEnds};
    deathUs_ = CTime::getCurrentMicroSecond() + kLastWordsMs * 1000ULL;
  }
  changed_.notifyAll();
  return {true, "dies"};
}

void Faults::clear() {
  requests_.clear();
  voice_->speak();
  voice_->makeSense();
  const std::lock_guard lock(mutex_);
  timed_.clear();
}

std::string Faults::list() {
  std::vector<std::string> lines;
  for (const FaultCommand& rule : requests_.rules()) lines.push_back(textOf(rule));
  if (voice_->isSilent()) lines.push_back(stateText(Fault::kSilent, voice_->silentMs()));
  if (voice_->talksNonsense()) lines.push_back(stateText(Fault::kNonsense, voice_->nonsenseMs()));
  {
    const std::lock_guard lock(mutex_);
    const std::uint64_t nowUs = CTime::getCurrentMicroSecond();
    for (const Timed& timed : timed_) {
      const std::uint64_t leftMs = (std::max(timed.dueUs, nowUs) - nowUs) / 1000;
      lines.push_back("after " + std::to_string(leftMs) + ' ' + textOf(timed.command));
    }
  }
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
  return text.empty() ? "no faults" : text;
}

std::uint64_t Faults::earliestUs() const {
  std::uint64_t earliest = timed_.empty() ? Voice::kForever : timed_.front().dueUs;
  return deathUs_ ? std::min(earliest, *deathUs_) : earliest;
}

std::optional<FaultCommand> Faults::takeDue() {
  if (timed_.empty() || timed_.front().dueUs > CTime::getCurrentMicroSecond()) return std::nullopt;
  FaultCommand command = std::move(timed_.front().command);
  timed_.erase(timed_.begin());
  return command;
}

void Faults::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    const std::uint64_t nowUs = CTime::getCurrentMicroSecond();
    const std::uint64_t dueUs = std::min(earliestUs(), nowUs + kIdleUs);
    changed_.waitUntil(lock, dueUs, [&] { return stopping_ || earliestUs() < dueUs; });
    if (stopping_) return;
    if (deathUs_ && *deathUs_ <= CTime::getCurrentMicroSecond()) {
      deathUs_.reset();
      lock.unlock();
      end_();
      lock.lock();
    }
    while (const auto command = takeDue()) {
      lock.unlock();
      const Answer answer = carryOut(*command);
      Pexal::ILogger::instance()->log(answer.done ? 1 : kWarning, kTag, "fault \"%s\": %s\n",
                                      textOf(*command).c_str(), answer.text.c_str());
      lock.lock();
    }
  }
}

void Faults::stop() {
  requests_.stop();
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notifyAll();
  while (!thread_.isThreadOver()) CThread::sleep(1);
}

}  // namespace orvane::robot
