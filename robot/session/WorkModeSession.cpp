#include "session/WorkModeSession.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "pbase/Utils.h"

namespace orvane::robot {
namespace {

constexpr std::size_t kRememberedSessions = 64;

/// Far from the numbers of any other process: chance in the upper half, counted in the lower one.
std::uint64_t randomStart() {
  const auto bytes = Pexal::Utils::createRandomUUIDBytes();
  std::uint32_t chance = 0;
  std::memcpy(&chance, bytes.data(), sizeof chance);
  return static_cast<std::uint64_t>(chance) << 32;
}

const char* textOf(WorkModeSession::End how) {
  switch (how) {
    case WorkModeSession::End::kReleased:
      return "the session was released";
    case WorkModeSession::End::kExpired:
      return "the session's lease has run out";
    case WorkModeSession::End::kRevoked:
      return "the robot ended the session";
    case WorkModeSession::End::kReplaced:
      return "the session was taken anew under another number";
    case WorkModeSession::End::kEmergencyStop:
      return "an emergency stop ended the session";
  }
  return "the session ended";
}

}  // namespace

WorkModeSession::WorkModeSession(std::optional<std::uint64_t> lastId)
    : lastId_(lastId ? *lastId : randomStart()) {}

std::variant<WorkMode, Refusal> WorkModeSession::take(const Wish& wish, std::uint64_t nowMs) {
  judge(nowMs);
  if (current_ && current_->takeToken != wish.takeToken) {
    return Refusal{Reason::kHeldByAnother, "the low-level session is held by " + current_->holder +
                                               " for another " +
                                               std::to_string(current_->untilMs - nowMs) + " ms"};
  }
  end(End::kReplaced);
  WorkMode made;
  made.id = ++lastId_;
  made.holder = wish.holder;
  made.takeToken = wish.takeToken;
  made.observedHz = std::clamp(wish.observedHz.value_or(kDefaultHz), kMinHz, kMaxHz);
  made.leaseMs = std::clamp(wish.leaseMs.value_or(kDefaultLeaseMs), kMinLeaseMs, kMaxLeaseMs);
  made.untilMs = nowMs + made.leaseMs;
  current_ = made;
  return made;
}

std::optional<Refusal> WorkModeSession::check(std::uint64_t id, std::uint64_t nowMs) {
  judge(nowMs);
  if (current_ && current_->id == id) return std::nullopt;
  return Refusal{Reason::kNoSession, endOf(id)};
}

std::optional<Refusal> WorkModeSession::renew(std::uint64_t id, std::uint64_t nowMs) {
  if (auto refusal = check(id, nowMs)) return refusal;
  current_->untilMs = nowMs + current_->leaseMs;
  return std::nullopt;
}

std::optional<Refusal> WorkModeSession::finish(std::uint64_t id, End how, std::uint64_t nowMs) {
  if (auto refusal = check(id, nowMs)) return refusal;
  end(how);
  return std::nullopt;
}

std::variant<bool, Refusal> WorkModeSession::prepare(std::uint64_t id, bool enable, bool settled,
                                                     std::uint64_t nowMs) {
  if (auto refusal = check(id, nowMs)) return *std::move(refusal);
  WorkMode& session = *current_;
  if (!enable) {
    session.drive = WorkMode::Drive::kOff;
    return true;
  }
  if (session.drive == WorkMode::Drive::kOff) {
    session.drive = WorkMode::Drive::kPoweringUp;
    session.poweredMs = nowMs + kPowerUpMs;
    session.motionRestored = false;
  }
  if (session.drive == WorkMode::Drive::kPoweringUp && settled && nowMs >= session.poweredMs) {
    session.drive = WorkMode::Drive::kOn;
  }
  return session.drive == WorkMode::Drive::kOn;
}

std::optional<Refusal> WorkModeSession::restoreMotion(std::uint64_t id, std::uint64_t nowMs) {
  if (auto refusal = check(id, nowMs)) return refusal;
  if (driveIsOn()) {
    return Refusal{Reason::kNotNow, "the motors' drive is on; switch it off first"};
  }
  current_->drive = WorkMode::Drive::kOff;  // a client that no longer wants it needn't say so
  current_->motionRestored = true;
  return std::nullopt;
}

void WorkModeSession::judge(std::uint64_t nowMs) {
  if (current_ && nowMs >= current_->untilMs) end(End::kExpired);
}

bool WorkModeSession::end(End how) {
  if (!current_) return false;
  ended_.push_back({current_->id, how});
  if (ended_.size() > kRememberedSessions) ended_.pop_front();
  current_.reset();
  return true;
}

std::string WorkModeSession::endOf(std::uint64_t id) const {
  const auto ended = std::find_if(ended_.rbegin(), ended_.rend(),
                                  [&](const Ended& candidate) { return candidate.id == id; });
  return ended != ended_.rend() ? textOf(ended->how) : "there is no such session";
}

}  // namespace orvane::robot
