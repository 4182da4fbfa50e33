#include "arbiter/Arbiter.h"

#include <algorithm>
#include <utility>

#include "pbase/Utils.h"

namespace orvane::robot {
namespace {

constexpr std::size_t kRememberedGrants = 256;

}  // namespace

Arbiter::Arbiter(MakeId makeId)
    : makeId_(makeId ? std::move(makeId) : MakeId(Pexal::Utils::createRandomUUID)) {}

std::variant<Grant, Refusal> Arbiter::take(const std::string& clientId,
                                           std::optional<std::uint32_t> leaseMs,
                                           std::uint64_t nowMs) {
  judge(nowMs);
  if (current_ && current_->controller != clientId) {
    return Refusal{Reason::kHeldByAnother, "control is held by " + current_->holder +
                                               " for another " +
                                               std::to_string(current_->untilMs - nowMs) + " ms"};
  }
  if (current_) remember(*current_, End::kReplaced);
  current_ = makeGrant(clientId, leaseMs.value_or(kDefaultLeaseMs), nowMs);
  ++revision_;
  return *current_;
}

std::optional<Refusal> Arbiter::renew(const std::string& controller, std::uint64_t nowMs) {
  if (auto refusal = check(controller, nowMs)) return refusal;
  current_->untilMs = nowMs + current_->leaseMs;
  return std::nullopt;
}

std::optional<Refusal> Arbiter::release(const std::string& controller, std::uint64_t nowMs) {
  judge(nowMs);
  if (waiting_ && waiting_->controller == controller) {
    remember(*std::exchange(waiting_, std::nullopt), End::kReleased);
    return std::nullopt;
  }
  if (auto refusal = check(controller, nowMs)) return refusal;
  endCurrent(End::kReleased, nowMs);
  return std::nullopt;
}

std::optional<Refusal> Arbiter::check(const std::string& controller, std::uint64_t nowMs) {
  judge(nowMs);
  if (current_ && current_->controller == controller) return std::nullopt;
  return refusalFor(controller);
}

void Arbiter::judge(std::uint64_t nowMs) {
  if (current_ && nowMs >= current_->untilMs) endCurrent(End::kExpired, nowMs);
}

const Grant& Arbiter::preempt(const std::string& holder, std::uint32_t leaseMs,
                              std::uint64_t nowMs) {
  judge(nowMs);
  if (current_ && waiting_) {
    remember(*current_, End::kRevoked);
  } else if (current_) {
    waiting_ = current_;
  }
  current_ = makeGrant(holder, leaseMs, nowMs);
  ++revision_;
  return *current_;
}

bool Arbiter::restore(std::uint64_t nowMs) {
  judge(nowMs);
  if (!waiting_) return false;
  endCurrent(End::kRevoked, nowMs);
  return true;
}

bool Arbiter::revoke(std::uint64_t nowMs) {
  judge(nowMs);
  if (!current_) return false;
  if (waiting_) remember(*std::exchange(waiting_, std::nullopt), End::kRevoked);
  endCurrent(End::kRevoked, nowMs);
  return true;
}

bool Arbiter::expire(std::uint64_t nowMs) {
  judge(nowMs);
  if (!current_) return false;
  endCurrent(End::kExpired, nowMs);
  return true;
}

Grant Arbiter::makeGrant(const std::string& holder, std::uint32_t leaseMs,
                         std::uint64_t nowMs) const {
  const std::uint32_t granted = std::clamp(leaseMs, kMinLeaseMs, kMaxLeaseMs);
  return {makeId_(), holder, granted, nowMs, nowMs + granted};
}

void Arbiter::remember(const Grant& grant, End how) {
  ended_.push_back({grant.controller, how});
  if (ended_.size() > kRememberedGrants) ended_.pop_front();
}

void Arbiter::endCurrent(End how, std::uint64_t nowMs) {
  remember(*current_, how);
  current_ = std::exchange(waiting_, std::nullopt);
  if (current_) current_->untilMs = nowMs + current_->leaseMs;
  ++revision_;
}

Refusal Arbiter::refusalFor(const std::string& controller) const {
  if (waiting_ && waiting_->controller == controller) {
    return {Reason::kRevoked, "control was preempted by " + current_->holder};
  }
  const auto ended = std::find_if(ended_.rbegin(), ended_.rend(), [&](const Ended& candidate) {
    return candidate.controller == controller;
  });
  if (ended != ended_.rend()) {
    switch (ended->how) {
      case End::kExpired:
        return {Reason::kExpired, "the lease has run out"};
      case End::kRevoked:
        return {Reason::kRevoked, "control was revoked"};
      case End::kReleased:
        return {Reason::kNotController, "control was released"};
      case End::kReplaced:
        return {Reason::kNotController, "control was taken anew under another id"};
    }
  }
  if (!current_) return {Reason::kNotController, "nobody holds control; take it first"};
  return {Reason::kNotController, "control is held by " + current_->holder};
}

}  // namespace orvane::robot
