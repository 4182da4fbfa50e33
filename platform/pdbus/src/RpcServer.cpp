#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <utility>

#include "DDSContext.h"
#include "EndpointLife.h"
#include "Endpoints.h"
#include "PeerMismatch.h"
#include "RpcIntake.h"
#include "RpcRoutes.h"
#include "RpcWire.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace Pexal::PDBus {
namespace {

using Lock = std::unique_lock<PBase::CMutex>;

/// What the server's thread works on. That thread owns every DDS entity from open() on and deletes
/// them when it ends; libddsc's receive threads only queue requests and flag changes of the
/// clients.
///
/// mutex_ is a leaf: no DDS call, handler or log under it.
class ServerCore {
 public:
  ServerCore(std::string server, RPCServer::Handler handler)
      : server_(std::move(server)),
        handler_(std::move(handler)),
        clientMismatch_("topic " + requestTopic(server_), [this] { wake(); }) {}
  ServerCore(const ServerCore&) = delete;
  ServerCore& operator=(const ServerCore&) = delete;
  ~ServerCore() { close(); }  // before the members that the listeners use

  bool open(dds_entity_t participant, const std::string& partition);
  void run();
  void beginStop();

 private:
  static constexpr std::uint64_t kIdleMs = 60000;
  static constexpr std::uint64_t kGoneRetryMs = 200;

  std::optional<RpcIntake::Entry> next(bool& clientsChanged);
  void serve(const RpcIntake::Entry& entry);
  [[nodiscard]] bool isAcceptable(const Pexal_PDBus_Request& request, RpcRoutes::Route& route);
  RpcReply answer(const Pexal_PDBus_Request& request);
  void reply(RpcRoutes::Route& route, std::uint64_t number, const RpcReply& outcome);
  void complain(const char* what);
  void close();
  void wake();

  static void onRequest(dds_entity_t reader, void* core);
  static void onClientsChanged(dds_entity_t reader, dds_subscription_matched_status_t status,
                               void* core);

  const std::string server_;
  const RPCServer::Handler handler_;
  PeerMismatch clientMismatch_;
  Entity requestTopic_;
  Entity replyTopic_;
  Entity subscriber_;
  Entity reader_;
  std::optional<RpcRoutes> routes_;
  LogLimiter log_;

  PBase::CMutex mutex_;  // guards what follows
  PBase::CCondition changed_;
  bool stopping_ = false;
  bool clientsChanged_ = false;
  std::uint32_t overflowed_ = 0;
  RpcIntake intake_;
};

bool ServerCore::open(dds_entity_t participant, const std::string& partition) {
  requestTopic_ = checkedEntity(dds_create_topic(participant, &Pexal_PDBus_Request_desc,
                                                 requestTopic(server_).c_str(), nullptr, nullptr),
                                "request topic", server_);
  replyTopic_ = checkedEntity(dds_create_topic(participant, &Pexal_PDBus_Reply_desc,
                                               replyTopic(server_).c_str(), nullptr, nullptr),
                              "reply topic", server_);
  if (!requestTopic_ || !replyTopic_) return false;
  routes_.emplace(participant, replyTopic_.get(), server_, [this] { wake(); });

  const QosPtr requests = partitionQos(partition);
  const QosPtr qos = reliableQos();
  const ListenerPtr listener = makeListener(this);
  dds_lset_data_available(listener.get(), onRequest);
  dds_lset_subscription_matched(listener.get(), onClientsChanged);
  clientMismatch_.listenWith(listener.get());
  subscriber_ = checkedEntity(dds_create_subscriber(participant, requests.get(), nullptr),
                              "request subscriber", server_);
  if (!subscriber_) return false;
  reader_ = checkedEntity(
      dds_create_reader(subscriber_.get(), requestTopic_.get(), qos.get(), listener.get()),
      "request reader", server_);
  return static_cast<bool>(reader_);
}

void ServerCore::onRequest(dds_entity_t reader, void* argument) {
  auto& core = *static_cast<ServerCore*>(argument);
  takeAll<RequestSample>(reader, [&core](RequestSample& sample, const dds_sample_info_t& info) {
    Lock lock(core.mutex_);
    if (core.stopping_) return;
    if (!core.intake_.push(info.publication_handle, sample)) ++core.overflowed_;
    lock.unlock();
    core.changed_.notifyOne();
  });
}

void ServerCore::onClientsChanged(dds_entity_t, dds_subscription_matched_status_t, void* argument) {
  static_cast<ServerCore*>(argument)->wake();
}

void ServerCore::wake() {
  const Lock lock(mutex_);
  clientsChanged_ = true;
  changed_.notifyOne();
}

void ServerCore::beginStop() {
  const Lock lock(mutex_);
  stopping_ = true;
  intake_.clear();
  changed_.notifyAll();
}

std::optional<RpcIntake::Entry> ServerCore::next(bool& clientsChanged) {
  const bool stuck = routes_->hasStuck();
  const std::uint64_t waitMs = stuck                ? RpcRoutes::kStuckRetryMs
                               : routes_->hasGone() ? kGoneRetryMs
                                                    : kIdleMs;
  Lock lock(mutex_);
  changed_.waitUntil(lock, deadlineAfter(waitMs),
                     [this] { return stopping_ || clientsChanged_ || !intake_.empty(); });
  clientsChanged = std::exchange(clientsChanged_, false);
  const std::uint32_t overflowed = std::exchange(overflowed_, 0);
  auto entry = intake_.pop();
  lock.unlock();
  if (overflowed > 0) complain("more requests than fit, some were dropped");
  return entry;
}

void ServerCore::run() {
  for (;;) {
    bool clientsChanged = false;
    const auto entry = next(clientsChanged);
    if (clientsChanged) {
      routes_->findNew(reader_.get());
      clientMismatch_.report();
      routes_->reportMismatch();
    }
    routes_->sendParked();
    if (entry) {
      serve(*entry);
      continue;
    }
    {
      const Lock lock(mutex_);
      if (stopping_) break;
    }
    // Not before: a client that is gone may have left requests in the queue, such as a last
    // release.
    routes_->dropGone();
  }
  close();
}

void ServerCore::close() {
  // Reply writers first: deleting them lets the last replies be acknowledged, and only then do the
  // clients see the server go.
  routes_.reset();
  reader_.reset();
  subscriber_.reset();
  replyTopic_.reset();
  requestTopic_.reset();
}

bool ServerCore::isAcceptable(const Pexal_PDBus_Request& request, RpcRoutes::Route& route) {
  // Nothing leads back to a client that was gone before it could be looked at; what it sent one-way
  // still counts.
  if (!route.client() && !(request.oneWay && route.gone())) {
    complain("dropped a request of a client that doesn't announce itself");
    return false;
  }
  if (route.client() &&
      std::memcmp(request.client, route.client()->data(), route.client()->size()) != 0) {
    complain("dropped a request that names another client than the one that sent it");
    return false;
  }
  if (!route.seen().accept(request.number)) {
    complain("dropped a repeated request");
    return false;
  }
  return true;
}

void ServerCore::serve(const RpcIntake::Entry& entry) {
  const Pexal_PDBus_Request& request = entry.request.value;
  RpcRoutes::Route& route = routes_->of(entry.writer);
  if (!route.client()) routes_->findNew(reader_.get());  // its request came before news of it
  if (!isAcceptable(request, route)) return;
  const RpcReply outcome = answer(request);
  if (!request.oneWay && !outcome.withheld) reply(route, request.number, outcome);
}

RpcReply ServerCore::answer(const Pexal_PDBus_Request& request) {
  RpcReply outcome;
  try {
    RpcRequest parsed;
    const std::string_view text = textOf(request.document);
    if (std::strlen(request.service) > kMaxName || std::strlen(request.method) > kMaxName ||
        text.size() > kMaxDocument || !Utils::stringToJson(text, parsed.document) ||
        !parsed.document.isObject()) {
      complain("refused a malformed request");
      outcome.status = RpcStatus::kMalformedRequest;
      return outcome;
    }
    parsed.service = request.service;
    parsed.method = request.method;
    parsed.oneWay = request.oneWay;
    outcome = handler_(parsed);
    if (!isServerStatus(static_cast<std::uint32_t>(outcome.status))) {
      outcome.status = RpcStatus::kHandlerFailed;
    }
    return outcome;
  } catch (const std::exception& failure) {
    ILogger::instance()->log(4, kLogTag, "rpc server %s: handler of %.64s::%.64s threw: %s\n",
                             server_.c_str(), request.service, request.method, failure.what());
  } catch (...) {
    ILogger::instance()->log(4, kLogTag, "rpc server %s: handler of %.64s::%.64s threw\n",
                             server_.c_str(), request.service, request.method);
  }
  outcome = RpcReply();
  outcome.status = RpcStatus::kHandlerFailed;
  return outcome;
}

void ServerCore::reply(RpcRoutes::Route& route, std::uint64_t number, const RpcReply& outcome) {
  RpcRoutes::Reply reply{number, outcome.status, outcome.reason, {}};
  try {
    reply.document = Utils::jsonToString(outcome.document);
  } catch (const std::exception&) {
    reply.status = RpcStatus::kHandlerFailed;
  }
  if (reply.document.size() > kMaxDocument) {
    complain("an answer was too large");
    reply.status = RpcStatus::kHandlerFailed;
    reply.document.clear();
  }
  routes_->send(route, std::move(reply));
}

void ServerCore::complain(const char* what) {
  if (log_.permit()) {
    ILogger::instance()->log(3, kLogTag, "rpc server %s: %s\n", server_.c_str(), what);
  }
}

/// Threading: any thread. The thread holds its core by itself, so a handler that never returns
/// delays the end of its own server only.
class RpcServer final : public RPCServer, public Stoppable {
 public:
  RpcServer(std::string server, Handler handler)
      : server_(std::move(server)),
        core_(std::make_shared<ServerCore>(server_, std::move(handler))) {}
  ~RpcServer() override { RpcServer::stop(); }

  bool open(dds_entity_t participant, const std::string& partition) {
    return core_->open(participant, partition) &&
           thread_.start("pdbus:" + server_, [core = core_] { core->run(); });
  }

  void stop() override {
    core_->beginStop();
    // The handler uses what belongs to the caller, so there is no giving up on it here.
    while (!thread_.isCurrentThread() && !thread_.awaitEnd(deadlineAfter(kReportMs))) {
      report("still waits for its handler to end");
    }
  }

  void beginStop() override { core_->beginStop(); }
  void finishStop() override {
    if (!thread_.awaitEnd(deadlineAfter(kFinishMs)) && !thread_.isCurrentThread()) {
      report("left behind with a handler that doesn't end");
    }
  }

 private:
  static constexpr std::uint64_t kReportMs = 5000;
  static constexpr std::uint64_t kFinishMs = 3000;

  void report(const char* what) const {
    ILogger::instance()->log(3, kLogTag, "rpc server %s: %s\n", server_.c_str(), what);
  }

  const std::string server_;
  const std::shared_ptr<ServerCore> core_;
  EndpointThread thread_;
};

}  // namespace

std::shared_ptr<RPCServer> RPCServer::create(const std::shared_ptr<IDDSFactory>& factory,
                                             const std::string& domain, const std::string& server,
                                             const std::string& deviceId, Handler handler) {
  const auto refuse = [&server](const char* why) -> std::shared_ptr<RPCServer> {
    ILogger::instance()->log(4, kLogTag, "rpc server %s: %s\n", server.c_str(), why);
    return nullptr;
  };
  const auto context = std::static_pointer_cast<DDSContext>(factory);
  if (!context || !handler) return refuse("no dds factory or no handler");
  const auto partition = devicePartition(deviceId);
  if (!partition) return refuse("the device id is too long");
  const dds_entity_t participant = context->participantOf(domain);
  if (participant <= 0) return refuse("the dds layer isn't started or has no such domain");
  const auto made = std::make_shared<RpcServer>(server, std::move(handler));
  if (!made->open(participant, *partition)) return refuse("not started");
  if (!context->attach(made)) return refuse("the dds layer was shut down");
  return made;
}

}  // namespace Pexal::PDBus
