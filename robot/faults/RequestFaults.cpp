#include "faults/RequestFaults.h"

#include <algorithm>
#include <mutex>

#include "faults/Nonsense.h"
#include "pbase/CTime.h"

namespace orvane::robot {

using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;

RpcReply RequestFaults::handle(const RpcRequest& request, const char* service) {
  RpcReply reply;
  reply.withheld = true;
  if (voice_->isSilent()) return reply;
  const Fate fate = fateOf(request.method);
  if (fate.drop) return reply;
  reply = fate.errorNumber == 0 ? server_->handle(request, service)
                                : server_->refuse(request, {static_cast<Reason>(fate.errorNumber),
                                                            "refused by a scripted fault"});
  if (fate.delayMs > 0) wait(fate);
  if (voice_->talksNonsense()) reply.document = nonsenseAnswer(voice_->nextTurn());
  reply.withheld = fate.withhold || voice_->isSilent();
  return reply;
}

RequestFaults::Fate RequestFaults::fateOf(const std::string& method) {
  const std::lock_guard lock(mutex_);
  Fate fate;
  fate.clears = clears_;
  if (rules_.empty()) return fate;
  fate.drop = consume(Fault::kDrop, method).fault == Fault::kDrop;
  if (fate.drop) return fate;
  fate.withhold = consume(Fault::kWithhold, method).fault == Fault::kWithhold;
  fate.delayMs = consume(Fault::kDelay, method).ms;
  fate.errorNumber = consume(Fault::kRefuse, method).errorNumber;
  return fate;
}

/// The rule that holds for `method`, used once; else one that says nothing (kList).
FaultCommand RequestFaults::consume(Fault fault, const std::string& method) {
  const auto ruleFor = [&](const std::string& name) {
    return std::find_if(rules_.begin(), rules_.end(), [&](const FaultCommand& rule) {
      return rule.fault == fault && rule.name == name;
    });
  };
  auto rule = ruleFor(method);
  if (rule == rules_.end()) rule = ruleFor(kAnyMethod);
  if (rule == rules_.end()) return {};
  FaultCommand used = *rule;
  if (rule->times > 0 && --rule->times == 0) rules_.erase(rule);
  return used;
}

void RequestFaults::wait(const Fate& fate) {
  const std::uint64_t untilUs =
      Pexal::PBase::CTime::getCurrentMicroSecond() + fate.delayMs * 1000ULL;
  std::unique_lock lock(mutex_);
  cleared_.waitUntil(lock, untilUs, [&] { return stopped_ || clears_ != fate.clears; });
}

std::optional<std::string> RequestFaults::add(const FaultCommand& rule) {
  const std::lock_guard lock(mutex_);
  if (stopped_) return kRobotEnds;
  const auto same = std::find_if(rules_.begin(), rules_.end(), [&](const FaultCommand& other) {
    return other.fault == rule.fault && other.name == rule.name;
  });
  if (same == rules_.end() && rules_.size() == kMostRules) return "too many faults; clear some";
  if (same != rules_.end()) rules_.erase(same);
  rules_.push_back(rule);
  return std::nullopt;
}

void RequestFaults::clear() {
  {
    const std::lock_guard lock(mutex_);
    rules_.clear();
    ++clears_;
  }
  cleared_.notifyAll();
}

void RequestFaults::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  clear();
}

std::vector<FaultCommand> RequestFaults::rules() {
  const std::lock_guard lock(mutex_);
  return rules_;
}

}  // namespace orvane::robot
