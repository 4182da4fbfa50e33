#include "lowlevel/SessionWorker.h"

#include <algorithm>
#include <utility>

#include "log/Log.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "service/Boundary.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

constexpr std::uint32_t kRoleTimeoutMs = 10000;
constexpr std::uint32_t kSessionTimeoutMs = 5000;
constexpr std::uint32_t kPassMs = 200;
constexpr std::uint32_t kShortestLeaseMs = 1500;  // whose third is kept
constexpr std::uint32_t kShortestRenewMs = 500;
constexpr std::uint32_t kNotReadyPauseMs = 1000;
constexpr std::uint32_t kTransientPauseMs = 2000;
constexpr std::uint64_t kWaitLogPauseMs = 5000;

/// Leaves `value` as it is unless the member is an unsigned number.
void readNumber(const Json::Value& object, const char* member, std::uint32_t& value) {
  if (!object.isObject()) return;
  const Json::Value& number = object[member];
  if (number.isUInt()) value = number.asUInt();
}

/// 0: not a session's number. A robot that grants that number has granted nothing: everywhere here
/// it stands for "no session", so it could neither be commanded nor given back.
std::uint64_t sessionIdOf(const Json::Value& grant) {
  if (!grant.isObject()) return 0;
  const Json::Value& id = grant["sessionId"];
  return id.isUInt64() ? id.asUInt64() : 0;
}

Json::Value paramsOf(std::uint64_t sessionId) {
  Json::Value params(Json::objectValue);
  params["sessionId"] = Json::UInt64{sessionId};
  return params;
}

unsigned long long printable(std::uint64_t number) {
  return number;
}

}  // namespace

SessionWorker::SessionWorker(SessionWish& wish, const std::string& takeToken,
                             LowLevelStatus& status, LowLevelRpc& rpc, MotionChannels& channels,
                             MotionCommands& commands, Tell tell)
    : wish_(wish),
      takeToken_(takeToken),
      status_(status),
      rpc_(rpc),
      channels_(channels),
      commands_(commands),
      tell_(std::move(tell)),
      observedHz_(wish.observedHz) {}

bool SessionWorker::isServing() const {
  return CThread::looping() && status_.isCurrent(wish_.connection);
}

void SessionWorker::serve() {
  MOTION_LOG(kUnit, level::kInfo, "local low level worker started...");
  const Json::Value settings = service::section("lowLevel");
  readNumber(settings, "reconnectBackoff", reconnectBackoffMs_);
  readNumber(settings, "leaseTimeout", leaseMs_);
  readNumber(settings, "renewInterval", fixedRenewMs_);
  while (isServing()) {
    if (!holdSession()) backOff(std::max(reconnectBackoffMs_, kPassMs));
  }
}

void SessionWorker::leave() {
  guarded("release of the session", [this] { releaseSession(); });
  status_.endOf(wish_.connection);
  guarded("close of the motor channels", [this] { channels_.close(); });
  MOTION_LOG(kUnit, level::kInfo, "local low level worker stopped...");
}

/// From the take of a session to its end. False: there was none to hold.
bool SessionWorker::holdSession() {
  if (!takeSession()) return false;
  if (!channels_.isOpen() && !channels_.open()) {
    const bool told = failTold(error::kNoChannel);
    releaseSession();
    return told;
  }
  const ConnectionNumber connection = wish_.connection;
  if (!status_.move(connection, kConnecting, kConnected) &&
      !status_.move(connection, kSessionLost, kConnected)) {
    return true;  // disconnected meanwhile
  }
  tell_(kConnected, error::kNone);
  keepAlive();
  const std::uint32_t reason = status_.lastError();  // before commands without a session add theirs
  releaseSession();
  if (status_.move(connection, kConnected, kSessionLost) ||
      status_.move(connection, kPrepared, kSessionLost)) {
    tell_(kSessionLost, reason);
  }
  // The next one is taken at once, but not without end from a robot that grants and denies.
  if (CTime::getCurrentMilliSecond() - lastLossMs_ < kPassMs) backOff(kPassMs);
  lastLossMs_ = CTime::getCurrentMilliSecond();
  return true;
}

// --- taking it and giving it back ---

bool SessionWorker::takeSession() {
  Json::Value answer;
  if (!rpc_.callMotion("setMotionMasterRole", Json::Value(), answer, kRoleTimeoutMs)) {
    return failTold(error::kRoleRefused);
  }
  if (!isServing()) return false;
  Json::Value params(Json::objectValue);
  params["observedHz"] = observedHz_;
  params["workMode"] = "lowLevel";
  params["shmMode"] = true;
  params["takeToken"] = takeToken_;
  params["leaseTimeout"] = wish_.leaseTimeoutMs;
  answer = Json::Value();
  if (!rpc_.callMotion("takeWorkModeSession", params, answer, kSessionTimeoutMs) ||
      sessionIdOf(answer) == 0) {
    return failTold(error::kTakeFailed);
  }
  adoptSession(answer);
  return true;
}

void SessionWorker::adoptSession(const Json::Value& grant) {
  {
    const SendGate::Passage passage(channels_.gate());
    status_.beginSession(sessionIdOf(grant));
  }
  nextPrepareAttemptMs_ = 0;
  lastWaitLogMs_ = 0;
  readNumber(grant, "observedHz", observedHz_);
  readNumber(grant, "leaseTimeout", leaseMs_);
  MOTION_LOG(kUnit, level::kInfo,
             "local low level connected: sessionId=%llu observedHz=%u leaseTimeout=%u",
             printable(status_.sessionId()), observedHz_, leaseMs_);
}

void SessionWorker::releaseSession() {
  if (const std::uint64_t id = status_.endSession(); id != 0) {
    rpc_.sendAction("releaseWorkModeSession", paramsOf(id));
  }
}

// --- keeping it ---

/// Returns when the session is over.
void SessionWorker::keepAlive() {
  lastRenewMs_ = CTime::getCurrentMilliSecond();
  while (isServing() && status_.isConnected() && renew() && driveMotionEnable()) {
    rest(kPassMs);
  }
}

std::uint32_t SessionWorker::renewIntervalMs() const {
  if (fixedRenewMs_ != 0) return fixedRenewMs_;
  return leaseMs_ >= kShortestLeaseMs ? leaseMs_ / 3 : kShortestRenewMs;
}

/// False: the session is lost.
bool SessionWorker::renew() {
  const std::uint64_t now = CTime::getCurrentMilliSecond();
  if (now < lastRenewMs_ + renewIntervalMs()) return true;
  const std::uint64_t id = status_.sessionId();
  Json::Value answer;
  if (rpc_.callMotion("renewWorkModeSession", paramsOf(id), answer, kSessionTimeoutMs)) {
    lastRenewMs_ = CTime::getCurrentMilliSecond();
    return true;
  }
  fail(error::kSessionInvalid);
  if (!readsTrue(answer, "sessionInvalid")) return true;  // tried again at the next pass
  MOTION_LOG(kUnit, level::kError,
             "local low level renew rejected by server (sessionInvalid), sid=%llu", printable(id));
  return false;
}

/// Switches the drive when it isn't as the application wants it. False: the session is lost.
bool SessionWorker::driveMotionEnable() {
  const bool enable = wish_.enabled;
  if (status_.state() != (enable ? kConnected : kPrepared)) return true;
  if (status_.sessionId() == 0 || CTime::getCurrentMilliSecond() < nextPrepareAttemptMs_) {
    return true;
  }
  Json::Value params = paramsOf(status_.sessionId());
  params["enable"] = enable;
  Json::Value answer;
  if (!rpc_.callMotion("setMotionPrepare", params, answer, kSessionTimeoutMs)) {
    return driveFailed(answer);
  }
  if (readsTrue(answer, "ready")) {
    driveSwitched(enable);
  } else {
    driveNotReady(enable);
  }
  return true;
}

void SessionWorker::driveSwitched(bool enable) {
  nextPrepareAttemptMs_ = 0;
  lastWaitLogMs_ = 0;
  if (!enable && !commands_.publishStoppedCmd(status_.sessionId())) {
    MOTION_LOG(kUnit, level::kWarning,
               " local low level publish stopped motion cmd failed, continue disable state "
               "transition");
  }
  const State from = enable ? kConnected : kPrepared;
  const State to = enable ? kPrepared : kConnected;
  if (!status_.move(wish_.connection, from, to)) return;
  MOTION_LOG(kUnit, level::kInfo, "local low level state transitioned to %s",
             enable ? "kPrepared" : "kConnected");
  tell_(to, error::kNone);
}

void SessionWorker::driveNotReady(bool enable) {
  const std::uint64_t now = CTime::getCurrentMilliSecond();
  nextPrepareAttemptMs_ = now + kNotReadyPauseMs;
  if (now - lastWaitLogMs_ < kWaitLogPauseMs) return;
  lastWaitLogMs_ = now;
  MOTION_LOG(kUnit, level::kWarning, " motion server switching to %s not ready, still waiting...",
             enable ? "enable" : "disable");
}

/// False: the session is lost.
bool SessionWorker::driveFailed(const Json::Value& answer) {
  if (readsTrue(answer, "sessionInvalid")) {
    fail(error::kSessionInvalid);
    MOTION_LOG(kUnit, level::kError,
               "setMotionPrepare rejected by server (sessionInvalid), sid=%llu",
               printable(status_.sessionId()));
    return false;
  }
  nextPrepareAttemptMs_ = CTime::getCurrentMilliSecond() + kTransientPauseMs;
  MOTION_LOG(kUnit, level::kWarning,
             " local low level driveMotionEnable RPC failed (transient), retry after %llums",
             printable(kTransientPauseMs));
  return true;
}

// --- small things ---

/// Until there is something to look at, or the time is over. However often it was posted, once is
/// enough.
void SessionWorker::rest(std::uint32_t ms) {
  if (!isServing()) return;
  if (wish_.wake.wait(ms)) wish_.wake.clear();
}

/// The same between takes, whatever was posted before: the state callback that has just told of the
/// failure may have posted, and must not turn the rest into none. The end of the connection isn't
/// missed: it is there to see before it is posted.
void SessionWorker::backOff(std::uint32_t ms) {
  wish_.wake.clear();
  rest(ms);
}

/// Errors of a connection that is over are nobody's.
void SessionWorker::fail(std::uint32_t code) {
  if (status_.isCurrent(wish_.connection)) status_.fail(code);
}

/// Gives false.
bool SessionWorker::failTold(std::uint32_t code) {
  fail(code);
  tell_(status_.state(), code);
  return false;
}

}  // namespace orvane::RobotSdk::lowlevel
