#include "lowlevel/LocalLowLevelClientImpl.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "log/Log.h"
#include "pbase/Utils.h"
#include "service/Boundary.h"
#include "service/CallbackScope.h"
#include "service/IMediaBusClient.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;
using lowlevel::kUnit;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;
namespace error = lowlevel::error;

constexpr std::uint32_t kDefaultLeaseMs = 60000;
constexpr std::uint32_t kEndPollMs = 2;

}  // namespace

/// One connect with its worker. All that its start needs is made with it, so that memory which is
/// short fails the connect and nothing later.
struct LocalLowLevelClientImpl::Connection {
  struct Held {
    std::shared_ptr<LocalLowLevelClientImpl> client;
    ConnectionPtr connection;
  };

  Connection(lowlevel::ConnectionNumber number, std::uint32_t observedHz, std::uint32_t leaseMs)
      : wish{number, observedHz, leaseMs} {}
  [[nodiscard]] bool isOver() const { return finished && worker.isThreadOver(); }

  lowlevel::SessionWish wish;
  // What the worker takes with it when it runs. Empty before the start: it would hold itself.
  const std::shared_ptr<Held> start = std::make_shared<Held>();
  CThreadLite worker{"robotSdk:LLClientShm", 64, 0, 0, [start = start] {
                       const Held held = std::exchange(*start, {});
                       held.client->runWorker(*held.connection);
                     }};
  std::atomic<bool> finished{false};  // the worker is past its last act, or never came to be
};

LocalLowLevelClientImpl::LocalLowLevelClientImpl() : takeToken_(Pexal::Utils::createRandomUUID()) {}

/// The handle has disconnected, and a worker holds the object: nothing is left to wait for.
LocalLowLevelClientImpl::~LocalLowLevelClientImpl() = default;

std::uint32_t LocalLowLevelClientImpl::getState() {
  return status_.state();
}

std::uint32_t LocalLowLevelClientImpl::getLastError() {
  return status_.takeError();
}

// --- connect and disconnect ---

bool LocalLowLevelClientImpl::connect(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs) {
  return guarded(
      "connect", [&] { return connectNow(observedHz, leaseTimeoutMs); }, false);
}

bool LocalLowLevelClientImpl::connectNow(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs) {
  if (status_.state() != lowlevel::kDisconnected) return true;
  if (!rpc_.renewMotionClient()) return failConnect("motionServer rpc client unavailable");
  ConnectionPtr former;  // so that its thread object doesn't end under the lock
  ConnectionPtr next;    // whose worker is to be started now
  {
    const Lock lock(lifecycleLock_);
    if (status_.state() != lowlevel::kDisconnected) return true;
    former = working_;
    const std::uint32_t leaseMs = leaseTimeoutMs == 0 ? kDefaultLeaseMs : leaseTimeoutMs;
    current_ = std::make_shared<Connection>(connections_ + 1, observedHz, leaseMs);
    status_.begin(++connections_);
    if (working_ == nullptr || working_->finished) next = working_ = current_;
  }
  return next == nullptr || startWorker(next);
}

/// Gives false.
bool LocalLowLevelClientImpl::failConnect(const char* reason) {
  MOTION_LOG(kUnit, level::kError, "shm low level motion connect failed: %s", reason);
  status_.fail(error::kNoChannel);
  return false;
}

/// Of working_, by who made it that, without the lock (what goes wrong is logged). False: the
/// system has no thread, and the connection is over.
bool LocalLowLevelClientImpl::startWorker(const ConnectionPtr& connection) {
  *connection->start = {shared_from_this(), connection};
  const auto create = [&] { return connection->worker.createThread(); };
  if (guarded("low level worker's start", create, false)) return true;
  *connection->start = {};
  status_.endOf(connection->wish.connection);
  const bool failed = failConnect("no thread for the worker");
  finishWorker();
  return failed;
}

bool LocalLowLevelClientImpl::disconnect() {
  return guarded(
      "disconnect", [this] { return disconnectNow(); }, false);
}

bool LocalLowLevelClientImpl::disconnectNow() {
  std::shared_ptr<IMediaBusClient> media;
  ConnectionPtr ending;
  {
    const Lock lock(lifecycleLock_);
    if (working_ == nullptr) return true;  // never connected
    if (status_.state() == lowlevel::kDisconnected && working_->isOver()) return true;
    status_.end();
    media.swap(mediaBus_);
    ending = working_;
    ending->wish.wake.post();
    ending->worker.cancelThread();
  }
  if (media != nullptr) media->stop();
  if (!CallbackScope::active() && !ending->worker.isCurrentThread()) {
    while (!ending->isOver()) CThread::sleep(kEndPollMs);
  }
  MOTION_LOG(kUnit, level::kInfo, "local low level client disconnected");
  return true;
}

// --- the worker ---

void LocalLowLevelClientImpl::runWorker(Connection& connection) {
  const lowlevel::ConnectionNumber number = connection.wish.connection;
  lowlevel::SessionWorker worker(
      connection.wish, takeToken_, status_, rpc_, channels_, commands_,
      [this, number](std::uint32_t state, std::uint32_t code) { tell(number, state, code); });
  guarded("low level worker", [&] { worker.serve(); });
  worker.leave();
  finishWorker();
}

/// The last act of working_'s worker: makes way, and starts the worker of a connection that waits
/// for its turn.
void LocalLowLevelClientImpl::finishWorker() {
  ConnectionPtr next;
  {
    const Lock lock(lifecycleLock_);
    working_->finished = true;
    const bool waits = current_ != working_ && status_.isCurrent(current_->wish.connection);
    if (waits) next = working_ = current_;
  }
  if (next != nullptr) startWorker(next);
}

// --- the state callback ---

void LocalLowLevelClientImpl::setStateCallback(LowLevelStateCallback callback) {
  guarded("setStateCallback", [&] {
    SharedCallback replacement;  // and what it replaced: the application's own, freed unlocked
    if (callback) {
      replacement = std::make_shared<const LowLevelStateCallback>(std::move(callback));
    }
    const Lock lock(callbackLock_);
    stateCallback_.swap(replacement);
  });
}

void LocalLowLevelClientImpl::tell(lowlevel::ConnectionNumber connection, std::uint32_t state,
                                   std::uint32_t code) {
  SharedCallback callback;
  {
    const Lock lock(callbackLock_);
    callback = stateCallback_;
  }
  if (callback == nullptr || !status_.isCurrent(connection)) return;
  const CallbackScope scope;
  guarded("state callback", [&] { (*callback)(state, code); });
}

// --- what the application asks ---

bool LocalLowLevelClientImpl::setSessionFlag(bool enable) {
  // With the lock, so that a wish can't slip into a connection that has just begun.
  const Lock lock(lifecycleLock_);
  if (status_.state() == lowlevel::kDisconnected) return true;
  current_->wish.enabled = enable;
  current_->wish.wake.post();
  return true;
}

bool LocalLowLevelClientImpl::requestInSession(lowlevel::State needed, Request request,
                                               const char* method, std::uint32_t timeoutMs) {
  const std::uint64_t sessionId = status_.sessionId();
  if (status_.state() != needed || sessionId == 0) {
    status_.fail(error::kWrongState);
    return false;
  }
  Json::Value params(Json::objectValue);
  params["sessionId"] = Json::UInt64{sessionId};
  Json::Value answer;
  if ((rpc_.*request)(method, params, answer, timeoutMs)) return true;
  status_.fail(error::kNotDone);
  return false;
}

bool LocalLowLevelClientImpl::emergencyStop(std::uint32_t timeoutMs) {
  const auto request = [&] {
    return requestInSession(lowlevel::kPrepared, &lowlevel::LowLevelRpc::callMotion,
                            "emergencyStop", timeoutMs);
  };
  return guarded("emergencyStop", request, false);
}

bool LocalLowLevelClientImpl::restoreMotionControlMode(std::uint32_t timeoutMs) {
  const auto request = [&] {
    return requestInSession(lowlevel::kConnected, &lowlevel::LowLevelRpc::callCerebellum,
                            "restoreMotionControlMode", timeoutMs);
  };
  return guarded("restoreMotionControlMode", request, false);
}

bool LocalLowLevelClientImpl::getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) {
  if (out == nullptr) {
    status_.fail(error::kInvalidArgument);
    return false;
  }
  return guarded(
      "getMotorLayout", [&] { return fetchMotorLayout(*out, timeoutMs); }, false);
}

bool LocalLowLevelClientImpl::fetchMotorLayout(MotorLayout& out, std::uint32_t timeoutMs) {
  {
    const Lock lock(layoutLock_);
    if (layoutCached_) {
      out = motorLayout_;
      return true;
    }
  }
  Json::Value answer;
  MotorLayout layout{};
  if (!rpc_.callMotion("getMotorLayout", Json::Value(), answer, timeoutMs) ||
      !service::parseMotorLayout(answer, layout)) {
    return false;
  }
  const Lock lock(layoutLock_);
  out = motorLayout_ = layout;
  layoutCached_ = true;
  return true;
}

std::shared_ptr<IMediaBusClient> LocalLowLevelClientImpl::createMediaBusClient() {
  using Client = std::shared_ptr<IMediaBusClient>;
  const auto create = [this]() -> Client {
    if (status_.state() == lowlevel::kDisconnected) {
      MOTION_LOG(kUnit, level::kError, "low level createMediaBusClient failed: not connected");
      return nullptr;
    }
    Client made = service::createMediaBusClient();
    if (made == nullptr) return nullptr;
    const Lock lock(lifecycleLock_);
    // Disconnected meanwhile: nobody would stop it.
    if (status_.state() == lowlevel::kDisconnected) return nullptr;
    if (mediaBus_ == nullptr) mediaBus_ = std::move(made);
    return mediaBus_;
  };
  return guarded("createMediaBusClient", create, Client());
}

// --- the control loop ---

bool LocalLowLevelClientImpl::requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs) {
  return guarded(
      "requireSensor", [&] { return commands_.requireSensor(out, timeoutUs); }, false);
}

bool LocalLowLevelClientImpl::requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs) {
  return guarded(
      "requireObserved", [&] { return commands_.requireObserved(out, timeoutMs); }, false);
}

bool LocalLowLevelClientImpl::publishMotorAction(const LowLevelMotorRecord* record,
                                                 const LowLevelTrailer* trailer) {
  return guarded(
      "publishMotorAction", [&] { return commands_.publishMotorAction(record, trailer); }, false);
}

bool LocalLowLevelClientImpl::publishMaxTorque(const LowLevelMotorRecord* record) {
  return guarded(
      "publishMaxTorque", [&] { return commands_.publishMaxTorque(record); }, false);
}

}  // namespace orvane::RobotSdk
