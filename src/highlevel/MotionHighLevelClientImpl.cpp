#include "highlevel/MotionHighLevelClientImpl.h"

#include <mutex>
#include <optional>
#include <utility>

#include "highlevel/ErrorCode.h"
#include "highlevel/MotionControlBackEnd.h"
#include "log/Log.h"
#include "pbase/CTime.h"
#include "service/Boundary.h"
#include "service/CallbackScope.h"
#include "service/IMediaBusClient.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;

constexpr char kUnit[] = "MotionHighLevelClientImpl";
constexpr std::uint32_t kDefaultLeaseMs = 60000;
constexpr std::uint32_t kStartPollMs = 2;
constexpr std::uint32_t kEndPollMs = 10;

}  // namespace

MotionHighLevelClientImpl::MotionHighLevelClientImpl(Kind kind, std::string deviceId)
    : kind_(kind),
      deviceId_(std::move(deviceId)),
      serverName_(kind == Kind::kRemote ? "robotServer" : "brainServer"),
      serviceName_(kind == Kind::kRemote ? "robotAppService" : "brainAppService") {}

/// The handle has disconnected, and a worker holds the object: nothing is left to wait for.
MotionHighLevelClientImpl::~MotionHighLevelClientImpl() = default;

std::uint32_t MotionHighLevelClientImpl::getState() {
  return lease_.state();
}

std::uint32_t MotionHighLevelClientImpl::getLastError() {
  return lastError_.exchange(error::kNone);
}

bool MotionHighLevelClientImpl::takeMotionControl(std::uint32_t acquireLimitMs) {
  return require(lease_.wantControl(acquireLimitMs), error::kNotConnected);
}

bool MotionHighLevelClientImpl::releaseMotionControl() {
  return require(lease_.wantRelease(), error::kNoControl);
}

// --- connect and disconnect ---

/// What connect found or began under the mutex.
struct MotionHighLevelClientImpl::Beginning {
  enum class Outcome { kAlreadyConnected, kNoEndpoint, kNoThread, kBegun };
  Outcome outcome = Outcome::kBegun;
  ConnectionPtr connection;
  ConnectionPtr former;
  std::optional<std::string> leftover;  // controller id that the former connection still holds
  std::string clientId;
};

bool MotionHighLevelClientImpl::connect(std::uint32_t leaseHintMs) {
  return guarded(
      "connect", [&] { return connectNow(leaseHintMs); }, false);
}

bool MotionHighLevelClientImpl::connectNow(std::uint32_t leaseHintMs) {
  using Outcome = Beginning::Outcome;
  const std::uint32_t leaseMs =
      static_cast<std::int32_t>(leaseHintMs) < 1 ? kDefaultLeaseMs : leaseHintMs;
  const Beginning beginning = beginConnection(leaseMs);
  if (beginning.outcome == Outcome::kAlreadyConnected) return true;
  if (beginning.outcome == Outcome::kNoEndpoint) {
    MOTION_LOG(kUnit, level::kError, "high level connect failed: %s rpc client/event unavailable",
               serverName_.c_str());
    return require(false, error::kNoEndpoint);
  }
  if (beginning.leftover) lease_.giveBack(*beginning.leftover);
  if (beginning.outcome == Outcome::kNoThread) {
    MOTION_LOG(kUnit, level::kError, "high level connect failed: no thread for the worker");
    return require(false, error::kNoEndpoint);
  }
  followSubscriptions();
  // Inside a callback the former worker may be waiting for this very thread: it starts the new one.
  if (!CallbackScope::active() && !awaitStart(*beginning.connection)) {
    return require(false, error::kNotConnected);  // disconnected by another thread meanwhile
  }
  MOTION_LOG(kUnit, level::kInfo, "high level connected: clientId=%s leaseHint=%ums",
             beginning.clientId.c_str(), leaseMs);
  return true;
}

MotionHighLevelClientImpl::Beginning MotionHighLevelClientImpl::beginConnection(
    std::uint32_t leaseMs) {
  using Outcome = Beginning::Outcome;
  Beginning beginning;
  const Lock lock(mutex_);
  if (lease_.state() != MotionLease::kDisconnected) {
    beginning.outcome = Outcome::kAlreadyConnected;
    return beginning;
  }
  makeParts();
  auto bus = service::eventBus(serverName_);
  auto client = service::rpcClient(serverName_);
  if (bus == nullptr || client == nullptr) {
    beginning.outcome = Outcome::kNoEndpoint;
    return beginning;
  }
  eventBus_ = std::move(bus);
  rpcClient_ = std::move(client);
  beginning.clientId = service::clientId();
  MotionLease::Begun begun = lease_.begin(leaseMs, beginning.clientId);
  beginning.leftover = std::move(begun.leftover);
  beginning.former = working_;  // so that its thread object doesn't end under the mutex
  beginning.connection = std::make_shared<Connection>();
  beginning.connection->number = begun.connection;
  current_ = beginning.connection;
  lastError_ = error::kNone;
  const bool workerFree =
      working_ == nullptr || working_->finished || working_->worker->isThreadOver();
  if (workerFree && !startWorker(current_)) beginning.outcome = Outcome::kNoThread;
  return beginning;
}

/// With the mutex held.
void MotionHighLevelClientImpl::makeParts() {
  if (observed_ == nullptr) {
    const auto make = [this] {
      return kind_ == Kind::kRemote ? makeRemoteObserved(weak_from_this(), deviceId_)
                                    : makeLocalObserved(weak_from_this());
    };
    observed_ = guarded("make the observed source", make, std::shared_ptr<IHighLevelObserved>());
  }
  if (motionControl_ != nullptr) return;
  if (kind_ == Kind::kBoardMaster) {
    motionControl_ = std::make_shared<BrainHighMotionControl>(weak_from_this());
  } else {
    motionControl_ =
        std::make_shared<CereHighMotionControl>(weak_from_this(), kind_ == Kind::kRemote);
  }
}

/// With the mutex held, when no other worker runs. The back end is set up here already, so that
/// commands right after connect find it.
bool MotionHighLevelClientImpl::startWorker(const ConnectionPtr& connection) {
  struct Held {
    std::shared_ptr<MotionHighLevelClientImpl> client;
    ConnectionPtr connection;
  };
  const auto start = std::make_shared<Held>(Held{shared_from_this(), connection});
  connection->worker = std::make_unique<CThreadLite>("robotSdk:HLClient", 64, 0, 0, [start] {
    const Held held = std::exchange(*start, {});  // for as long as the worker runs
    held.client->runWorker(*held.connection);
  });
  working_ = connection;
  static_cast<void>(motionControl_->setup());
  if (connection->worker->createThread()) return true;
  *start = {};
  connection->finished = true;
  lease_.end();
  return false;
}

/// Waits until the worker of the former connection has made way. False: the connection is over.
bool MotionHighLevelClientImpl::awaitStart(const Connection& connection) {
  for (;;) {
    {
      const Lock lock(mutex_);
      if (connection.worker != nullptr) return true;
      if (!lease_.isCurrent(connection.number)) return false;
    }
    CThread::sleep(kStartPollMs);
  }
}

bool MotionHighLevelClientImpl::disconnect() {
  return guarded(
      "disconnect", [this] { return disconnectNow(); }, false);
}

bool MotionHighLevelClientImpl::disconnectNow() {
  std::shared_ptr<IMediaBusClient> media;
  ConnectionPtr ending;
  {
    const Lock lock(mutex_);
    const bool workerOver = working_ == nullptr || working_->worker->isThreadOver();
    if (lease_.state() == MotionLease::kDisconnected && workerOver) return true;
    lease_.end();
    media.swap(mediaBusClient_);
    ending = working_;
    ending->wake.post();
    ending->worker->cancelThread();
  }
  if (media != nullptr) media->stop();
  if (CallbackScope::active() || ending->worker->isCurrentThread()) return true;
  while (!ending->worker->isThreadOver()) CThread::sleep(kEndPollMs);
  awaitCallbacks();
  MOTION_LOG(kUnit, level::kInfo, "motion high level client disconnected");
  return true;
}

/// Makes the subscriptions fit the state: those of the current connection, or none. Called after
/// every change; the last caller wins with the last state.
void MotionHighLevelClientImpl::followSubscriptions() {
  using Pexal::PDBus::EventHandler;
  const std::weak_ptr<MotionHighLevelClientImpl> self = weak_from_this();
  const std::pair<std::string, EventHandler> subscriptions[] = {
      {serverName_ + ".host.event",
       EventHandler::bind(self, &MotionHighLevelClientImpl::onHostEvent)},
      {serverName_ + ".control.status",
       EventHandler::bind(self, &MotionHighLevelClientImpl::onControlStatus)}};
  const Lock subscriptionLock(subscriptionMutex_);
  std::shared_ptr<Pexal::PDBus::IEventBus> wanted;
  {
    const Lock lock(mutex_);
    if (lease_.state() != MotionLease::kDisconnected) wanted = eventBus_;
  }
  if (subscribedBus_ != nullptr && subscribedBus_ != wanted) {
    for (const auto& [topic, handler] : subscriptions) subscribedBus_->unsubscribe(topic, handler);
  }
  subscribedBus_ = std::move(wanted);
  if (subscribedBus_ == nullptr) return;
  for (const auto& [topic, handler] : subscriptions) subscribedBus_->subscribe(topic, handler);
}

// --- the worker ---

void MotionHighLevelClientImpl::runWorker(Connection& connection) {
  MOTION_LOG(kUnit, level::kInfo, "motion high level worker started...");
  static_cast<void>(startMotion());
  followSubscriptions();
  serve(connection);
  lease_.giveBackHeld();
  if (const auto source = observed()) source->stop();
  motionControl()->teardown();
  followSubscriptions();
  MOTION_LOG(kUnit, level::kInfo, "motion high level worker stopped...");
  finishWorker();
}

void MotionHighLevelClientImpl::serve(Connection& connection) {
  lease_.beginWork(connection.number);
  while (CThread::looping() && lease_.isCurrent(connection.number)) {
    lease_.step();
    if (lease_.renew()) continue;
    const std::uint64_t now = Pexal::PBase::CTime::getCurrentMilliSecond();
    const std::uint64_t wake = lease_.nextWorkMs(now);
    if (wake <= now) continue;
    static_cast<void>(connection.wake.wait(static_cast<std::uint32_t>(wake - now)));
  }
}

/// The worker's last act: makes way, and starts the worker of a connection that waits for its turn.
void MotionHighLevelClientImpl::finishWorker() {
  bool started = true;
  {
    const Lock lock(mutex_);
    working_->finished = true;
    const bool next = current_ != working_ && lease_.isCurrent(current_->number);
    if (next) started = startWorker(current_);
  }
  if (started) return;
  MOTION_LOG(kUnit, level::kError, "high level connect failed: no thread for the worker");
  recordError(error::kNoEndpoint);
  followSubscriptions();
}

void MotionHighLevelClientImpl::wakeWorker() {
  const Lock lock(mutex_);
  if (current_ != nullptr) current_->wake.post();
}

bool MotionHighLevelClientImpl::startMotion() {
  const auto source = observed();
  const bool observes = source != nullptr && source->start();
  return motionControl()->setup() && observes;
}

bool MotionHighLevelClientImpl::claimMasterRole(std::uint32_t timeoutMs) {
  return motionControl()->setMotionMasterRole(timeoutMs);
}

}  // namespace orvane::RobotSdk
