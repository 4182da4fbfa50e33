#include "highlevel/MotionLease.h"

#include <algorithm>
#include <mutex>

#include "highlevel/ErrorCode.h"
#include "log/Log.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/System.h"

namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;

constexpr char kUnit[] = "MotionHighLevelClientImpl";

constexpr std::uint32_t kDefaultAcquireLimitMs = 10000;
constexpr std::uint32_t kRequestTimeoutMs = 5000;  // of the role and the take request
constexpr std::uint32_t kRenewTimeoutMs = 3000;
constexpr std::uint32_t kPauseBeforeTakeMs = 3000;
constexpr std::uint64_t kRetryMs = 1000;
constexpr std::uint64_t kStartRetryMs = 2000;
constexpr std::uint64_t kRetryLogSpacingMs = 5000;
constexpr std::uint64_t kLongestWaitMs = 60000;
constexpr std::uint32_t kShortLeaseMs = 1500;  // below it renewals come at a fixed interval
constexpr std::uint64_t kShortLeaseRenewalMs = 500;
constexpr std::uint32_t kReasonRevoked = 29;

std::uint64_t currentMs() {
  return Pexal::PBase::CTime::getCurrentMilliSecond();
}

Json::Value memberOf(const Json::Value& document, const char* name) {
  return document.isObject() ? document[name] : Json::Value();
}

std::string textOf(const Json::Value& value) {
  return value.isString() ? value.asString() : "";
}

}  // namespace

std::string MotionLease::clientId() const {
  const Lock lock(mutex_);
  return clientId_;
}

MotionLease::Begun MotionLease::begin(std::uint32_t requestedLeaseMs, const std::string& ownId) {
  Begun begun{++connection_, std::nullopt};
  if (clientId_ != ownId_) begun.leftover = clientId_;
  ownId_ = ownId;
  clientId_ = ownId;
  requestedLeaseMs_ = requestedLeaseMs;
  wantControl_ = false;
  preempted_ = false;
  releasing_ = false;
  controlSinceMs_ = 0;
  acquireDeadlineMs_ = 0;
  state_ = kConnected;
  return begun;
}

void MotionLease::end() {
  wantControl_ = false;
  state_ = kDisconnected;
}

// --- wishes ---

bool MotionLease::wantControl(std::uint32_t limitMs) {
  {
    const Lock lock(mutex_);
    if (state_ == kDisconnected) return false;
    acquireDeadlineMs_ = currentMs() + (limitMs == 0 ? kDefaultAcquireLimitMs : limitMs);
    wantControl_ = true;
  }
  host_.wakeWorker();
  return true;
}

bool MotionLease::wantRelease() {
  {
    const Lock lock(mutex_);
    if (state_ != kControlling) return false;
    wantControl_ = false;
  }
  host_.wakeWorker();
  return true;
}

// --- the worker's steps ---

void MotionLease::beginWork(ConnectionNumber connection) {
  served_ = connection;
  nextActionMs_ = 0;
  lastRetryLogMs_ = 0;
}

bool MotionLease::canAcquire() const {
  return serving() && state_ == kConnected && wantControl_ && !preempted_;
}

bool MotionLease::canRelease() const {
  return serving() && state_ == kControlling && !wantControl_ && !preempted_;
}

void MotionLease::step() {
  const std::uint64_t now = currentMs();
  if (now < nextActionMs_) return;
  if (canAcquire()) {
    acquire(now);
  } else if (canRelease()) {
    release();
  }
}

/// A passed acquire deadline is work only for the acquire step, and that step waits for
/// nextActionMs_: the deadline itself never needs to end the wait, and would spin the worker if it
/// did.
std::uint64_t MotionLease::nextWorkMs(std::uint64_t nowMs) const {
  std::uint64_t wake = nowMs + kLongestWaitMs;
  if (state_ == kControlling) wake = std::min(wake, controlSinceMs_ + renewalIntervalMs());
  if (canAcquire() || canRelease()) wake = std::min(wake, nextActionMs_);
  return wake;
}

void MotionLease::acquire(std::uint64_t nowMs) {
  const std::uint64_t deadline = acquireDeadlineMs_;
  if (deadline != 0 && nowMs >= deadline) {
    giveUp(deadline);
    return;
  }
  if (!host_.startMotion()) {
    nextActionMs_ = nowMs + kStartRetryMs;
    return;
  }
  if (!host_.claimMasterRole(kRequestTimeoutMs)) {
    fail(error::kAcquireFailed);
    retryLater("set motion master role", nowMs);
    return;
  }
  Pexal::PBase::CThread::sleep(kPauseBeforeTakeMs);
  take(currentMs());
}

void MotionLease::giveUp(std::uint64_t deadlineMs) {
  {
    const Lock lock(mutex_);
    // A wish that was renewed at the last moment has a new deadline.
    if (!canAcquire() || acquireDeadlineMs_ != deadlineMs) return;
    host_.recordError(error::kAcquireFailed);
    wantControl_ = false;
    acquireDeadlineMs_ = 0;
  }
  nextActionMs_ = 0;
  lastRetryLogMs_ = 0;
  MOTION_LOG(kUnit, level::kWarning,
             " high level take control timeout (deadline reached), give up acquire");
  host_.notifyConnect(served_, kConnected, error::kAcquireFailed);
}

void MotionLease::take(std::uint64_t nowMs) {
  Json::Value grant;
  if (requestControl(grant)) {
    becomeController(grant, nowMs);
  } else {
    retryLater("take motion control", nowMs);
  }
}

bool MotionLease::requestControl(Json::Value& grant) {
  std::string ownId;
  bool connected = false;
  {
    const Lock lock(mutex_);
    ownId = ownId_;
    connected = serving() && state_ == kConnected;
  }
  if (!connected) {
    fail(error::kNotConnected);
    return false;
  }
  Json::Value params(Json::objectValue);
  params["cmdMode"] = true;
  if (requestedLeaseMs_ != 0) params["leaseTimeout"] = requestedLeaseMs_.load();
  if (!host_.rpc("takeMotionControl", ownId, params, grant, kRequestTimeoutMs)) {
    fail(error::kAcquireFailed);
    return false;
  }
  if (memberOf(grant, "controller").isString()) return true;
  MOTION_LOG(kUnit, level::kError,
             "motion high level take motion control response missing controller");
  fail(error::kAcquireFailed);
  return false;
}

void MotionLease::becomeController(const Json::Value& grant, std::uint64_t nowMs) {
  const std::string controller = grant["controller"].asString();
  bool won = false;
  {
    const Lock lock(mutex_);
    std::uint32_t expected = kConnected;
    won = serving() && state_.compare_exchange_strong(expected, kControlling);
    if (won) {
      clientId_ = controller;
      controlSinceMs_ = nowMs;
      acquireDeadlineMs_ = 0;
      const Json::Value& lease = grant["leaseTimeout"];
      if (lease.isUInt()) grantedLeaseMs_ = lease.asUInt();
    }
  }
  if (!won) {  // the connection ended while the request was under way
    giveBack(controller);
    return;
  }
  nextActionMs_ = 0;
  lastRetryLogMs_ = 0;
  const std::uint32_t leaseMs = grantedLeaseMs_;
  MOTION_LOG(kUnit, level::kInfo, "high level acquired: controller=%s lease=%ums",
             controller.c_str(), leaseMs);
  MOTION_LOG(kUnit, level::kInfo, "high level controlled: lease=%ums", leaseMs);
  host_.notifyConnect(served_, kControlling, error::kNone);
}

void MotionLease::retryLater(const char* what, std::uint64_t nowMs) {
  nextActionMs_ = nowMs + kRetryMs;
  if (!serving() || nowMs < lastRetryLogMs_ + kRetryLogSpacingMs) return;
  lastRetryLogMs_ = nowMs;
  const std::uint64_t deadline = acquireDeadlineMs_;
  const auto leftMs = deadline == 0 ? -1LL : static_cast<long long>(deadline - nowMs);
  MOTION_LOG(kUnit, level::kWarning, " %s failed, retry after %llums (deadline in %lldms)", what,
             static_cast<unsigned long long>(kRetryMs), leftMs);
}

/// What happened while a request was under way is the ended connection's own business.
void MotionLease::fail(std::uint32_t code) {
  if (serving()) host_.recordError(code);
}

void MotionLease::release() {
  std::optional<std::string> controller;
  {
    const Lock lock(mutex_);
    if (!serving()) return;
    if (clientId_ != ownId_) controller = clientId_;
    releasing_ = true;
  }
  if (controller) giveBack(*controller);
  {
    const Lock lock(mutex_);
    if (!serving()) return;
    releasing_ = false;
    clientId_ = ownId_;
    preempted_ = false;  // by an event during the send: there is nothing to hand back any more
    std::uint32_t expected = kControlling;
    if (!state_.compare_exchange_strong(expected, kConnected)) return;
    controlSinceMs_ = 0;
  }
  nextActionMs_ = 0;
  MOTION_LOG(kUnit, level::kInfo, "motion controller released to kConnected");
  host_.notifyConnect(served_, kConnected, error::kNone);
}

void MotionLease::giveBack(const std::string& controller) {
  if (host_.sendAction("releaseMotionControl", controller, {})) return;
  MOTION_LOG(kUnit, level::kWarning, " release motion control failed (best-effort), controller=%s",
             controller.c_str());
}

void MotionLease::giveBackHeld() {
  std::string controller;
  {
    const Lock lock(mutex_);
    if (clientId_ == ownId_ || !serving()) return;
    controller = clientId_;
    clientId_ = ownId_;
  }
  giveBack(controller);
}

std::uint64_t MotionLease::renewalIntervalMs() const {
  const std::uint32_t granted = grantedLeaseMs_;
  return granted >= kShortLeaseMs ? granted / 3 : kShortLeaseRenewalMs;
}

bool MotionLease::renew() {
  std::uint64_t since = 0;
  std::string controller;
  {
    const Lock lock(mutex_);
    if (!serving() || state_ != kControlling) return false;
    since = controlSinceMs_;
    controller = clientId_;
  }
  if (currentMs() < since + renewalIntervalMs()) return false;
  Json::Value ignored;
  if (!host_.rpc("renewMotionControl", controller, {}, ignored, kRenewTimeoutMs)) {
    return lose(since);
  }
  const Lock lock(mutex_);
  const bool stillTheSame = serving() && state_ == kControlling && controlSinceMs_ == since;
  if (stillTheSame) controlSinceMs_ = currentMs();
  return false;
}

bool MotionLease::lose(std::uint64_t renewedSinceMs) {
  const std::uint32_t reason = Pexal::PBase::getLastErrno();
  const bool revoked = reason == kReasonRevoked;
  const std::uint32_t code = revoked ? error::kControlRevoked : error::kLeaseExpired;
  bool stale = false;
  {
    const Lock lock(mutex_);
    stale = !serving() || state_ != kControlling || controlSinceMs_ != renewedSinceMs;
    if (!stale) {
      host_.recordError(code);
      state_ = kConnected;
      controlSinceMs_ = 0;
      wantControl_ = false;
      clientId_ = ownId_;
    }
  }
  if (stale) {
    MOTION_LOG(kUnit, level::kInfo,
               "high level stale renew failure ignored after control status changed");
    return false;
  }
  MOTION_LOG(kUnit, level::kWarning, " high level lost control (errno=0x%x, reason=%s)", reason,
             revoked ? "revoked" : "expired");
  host_.notifyConnect(served_, kConnected, code);
  return true;
}

// --- control-status events ---

void MotionLease::onControlStatus(const Json::Value& payload) {
  const Json::Value flag = memberOf(payload, "controlled");
  const bool controlled = flag.isString() ? flag.asString() != "0" : flag.isBool() && flag.asBool();
  const std::string controller = textOf(memberOf(payload, "controller"));
  StatusChange change = StatusChange::kNone;
  ConnectionNumber connection = 0;
  {
    const Lock lock(mutex_);
    connection = connection_;
    change = applyStatus(controlled, controller);
  }
  if (change == StatusChange::kNone) return;
  if (change == StatusChange::kRestored) {
    MOTION_LOG(kUnit, level::kInfo, "high level original controller restored: controller=%s",
               controller.c_str());
    host_.wakeWorker();
    host_.notifyConnect(connection, kControlling, error::kNone);
    return;
  }
  MOTION_LOG(kUnit, level::kWarning,
             " control changed by server, current controller=%s, self preempted -> kConnected",
             controller.c_str());
  host_.notifyConnect(connection, kConnected, error::kControlRevoked);
}

MotionLease::StatusChange MotionLease::applyStatus(bool controlled, const std::string& controller) {
  if (state_ == kDisconnected) return StatusChange::kNone;
  if (controlled && controller == clientId_) {
    if (!preempted_) return StatusChange::kNone;
    preempted_ = false;
    host_.recordError(error::kNone);
    controlSinceMs_ = currentMs();
    state_ = kControlling;
    return StatusChange::kRestored;
  }
  const bool held = state_ == kControlling;
  if (!held && (controlled || !preempted_)) return StatusChange::kNone;
  // The answer to our own release, which reports it itself.
  if (!controlled && releasing_ && held) return StatusChange::kNone;
  if (held) host_.recordError(error::kControlRevoked);
  controlSinceMs_ = 0;
  state_ = kConnected;
  preempted_ = controlled;
  if (!controlled) {  // else id and wish stay, so that the server can hand control back
    wantControl_ = false;
    clientId_ = ownId_;
  }
  return held ? StatusChange::kLost : StatusChange::kNone;
}

}  // namespace orvane::RobotSdk
