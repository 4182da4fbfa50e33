#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "ScriptedState.h"
#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pbase/System.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

namespace scripted {

using StatePtr = std::shared_ptr<Bus::State>;
using Pexal::PDBus::RpcStatus;

namespace {

constexpr auto kTimeout = static_cast<std::uint32_t>(RpcStatus::kTimeout);
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
constexpr auto kStopped = static_cast<std::uint32_t>(RpcStatus::kStopped);

/// Simulated duration. Unlike CThread::sleep it isn't cut short by a cancellation, and neither is a
/// request that is under way.
void pass(std::uint32_t ms) {
  if (ms == 0) return;
  Pexal::PBase::CSemaphore nobodyPosts(0);
  static_cast<void>(nobodyPosts.wait(ms));
}

class Client final : public Pexal::PDBus::RPCClient {
 public:
  Client(StatePtr state, std::string server)
      : state_(std::move(state)), server_(std::move(server)) {}

  std::uint32_t sendAction(const std::string& service, const std::string& method,
                           const Json::Value& request, const std::string& deviceId) override {
    const Reply reply = play({server_, service, method, request, deviceId, true, 0, 0});
    pass(reply.takesMs);
    return reply.status;
  }

  std::uint32_t call(const std::string& service, const std::string& method,
                     const Json::Value& request, Json::Value& response, std::uint32_t timeoutMs,
                     const std::string& deviceId) override {
    Reply reply = play({server_, service, method, request, deviceId, false, timeoutMs, 0});
    pass(std::min(reply.takesMs, timeoutMs));
    if (reply.takesMs > timeoutMs) reply = transportFailure(kTimeout);
    if (reply.status == 0) response = reply.document;
    const bool failedWithoutReason = reply.status != 0 && reply.reason == 0;
    Pexal::PBase::setLastErrno(failedWithoutReason ? ETIMEDOUT : reply.reason);
    return reply.status;
  }

 private:
  Reply play(Request request) {
    request.atMs = Pexal::PBase::CTime::getCurrentMilliSecond();
    RpcHandler handler;
    {
      const std::lock_guard lock(state_->mutex);
      if (state_->gone) return transportFailure(kStopped);
      state_->requests.push_back(request);
      handler = state_->handler;
    }
    return handler ? handler(request) : accepted();
  }

  const StatePtr state_;
  const std::string server_;
};

class EventBus final : public Pexal::PDBus::IEventBus {
 public:
  EventBus(StatePtr state, std::string server)
      : state_(std::move(state)), server_(std::move(server)) {}

  bool publish(const std::string& topic, const Json::Value& payload,
               std::uint32_t openMs) override {
    const std::lock_guard lock(state_->mutex);
    if (state_->gone) return false;
    state_->published.push_back({server_, topic, payload, openMs});
    return state_->publishResult;
  }

  bool subscribe(const std::string& topic, const Pexal::PDBus::EventHandler& handler) override {
    const std::lock_guard lock(state_->mutex);
    if (state_->gone) return false;
    if (find(topic, handler) == state_->handlers.end()) {
      state_->handlers.push_back({{server_, topic}, handler});
    }
    return true;
  }

  bool unsubscribe(const std::string& topic, const Pexal::PDBus::EventHandler& handler) override {
    const std::lock_guard lock(state_->mutex);
    const auto found = find(topic, handler);
    if (found == state_->handlers.end()) return false;
    state_->handlers.erase(found);
    return true;
  }

 private:
  std::vector<Bus::State::Handler>::iterator find(const std::string& topic,
                                                  const Pexal::PDBus::EventHandler& handler) {
    return std::find_if(state_->handlers.begin(), state_->handlers.end(), [&](const auto& entry) {
      return entry.where.server == server_ && entry.where.topic == topic && entry.call == handler;
    });
  }

  const StatePtr state_;
  const std::string server_;
};

class Subscriber final : public Pexal::PDBus::IDDSSubcriber {
 public:
  Subscriber(StatePtr state, std::string domain, std::string topic)
      : state_(std::move(state)), domain_(std::move(domain)), topic_(std::move(topic)) {}

  std::shared_ptr<Pexal::PDBus::IBaseDDSReader> createReader(
      const dds::topic::TypeSupport& /*type*/, const dds::sub::qos::DataReaderQos& /*qos*/,
      RawCallback onSample, WriterFilter takesWriter) override {
    const std::lock_guard lock(state_->mutex);
    if (state_->failingReaderTopic == topic_) throw dds::core::Error("scripted reader failure");
    auto reader =
        std::make_shared<Reader>(domain_, topic_, std::move(onSample), std::move(takesWriter));
    state_->readers.push_back(reader);
    return reader;
  }

  void removeReader(const std::shared_ptr<Pexal::PDBus::IBaseDDSReader>& reader) override {
    if (reader == nullptr) return;
    if (auto* const made = dynamic_cast<Reader*>(&reader->inner())) made->remove();
  }

 private:
  const StatePtr state_;
  const std::string domain_;
  const std::string topic_;
};

/// The process's factory: leads to whatever bus lives now.
class Factory final : public Pexal::PDBus::IDDSFactory {
 public:
  void shutdown() override {
    if (const StatePtr state = Bus::State::current()) {
      const std::lock_guard lock(state->mutex);
      ++state->factoryShutdowns;
    }
  }

  bool initial(const Json::Value& document) override {
    const StatePtr state = Bus::State::current();
    if (state == nullptr) return false;
    const std::lock_guard lock(state->mutex);
    state->factoryDocuments.push_back(document);
    return state->factoryResult;
  }

  std::shared_ptr<Pexal::PDBus::RPCClient> rpcClient(const std::string& server) override {
    const StatePtr state = Bus::State::current();
    if (state == nullptr) return nullptr;
    const std::lock_guard lock(state->mutex);
    ++state->clientsAsked[server];
    return state->rpcAvailable ? std::make_shared<Client>(state, server) : nullptr;
  }

  std::shared_ptr<Pexal::PDBus::IEventBus> eventBus(const std::string& server) override {
    const StatePtr state = Bus::State::current();
    if (state == nullptr) return nullptr;
    const std::lock_guard lock(state->mutex);
    return state->eventBusAvailable ? std::make_shared<EventBus>(state, server) : nullptr;
  }

  std::shared_ptr<Pexal::PDBus::IDDSSubcriber> subscriber(const std::string& domain,
                                                          const std::string& topic) override {
    const StatePtr state = Bus::State::current();
    if (state == nullptr) return nullptr;
    const std::lock_guard lock(state->mutex);
    return state->subscribersAvailable ? std::make_shared<Subscriber>(state, domain, topic)
                                       : nullptr;
  }

  dds::domain::DomainParticipant participant(const std::string& /*domain*/) override {
    return dds::core::null;
  }
};

}  // namespace

void Reader::addWaitSet(dds::core::cond::WaitSet& /*waitSet*/, std::uint32_t /*mask*/) {
  const std::lock_guard lock(mutex_);
  ++info_.attached;
}

void Reader::delWaitSet(dds::core::cond::WaitSet& /*waitSet*/) {
  const std::lock_guard lock(mutex_);
  if (info_.attached > 0) --info_.attached;
}

bool Reader::push(const std::string& topic, const void* sample) {
  {
    std::unique_lock lock(mutex_);
    const bool free =
        idle_.waitUntil(lock, kNever, [this] { return info_.removed || !delivering_; });
    if (!free || info_.removed || info_.topic != topic) return false;
    delivering_ = true;
    deliverer_ = std::this_thread::get_id();
  }
  onSample_(sample);
  const std::lock_guard lock(mutex_);
  delivering_ = false;
  idle_.notifyAll();
  return true;
}

void Reader::remove() {
  std::unique_lock lock(mutex_);
  info_.removed = true;
  idle_.notifyAll();
  idle_.waitUntil(lock, kNever,
                  [this] { return !delivering_ || deliverer_ == std::this_thread::get_id(); });
}

ReaderInfo Reader::info() {
  const std::lock_guard lock(mutex_);
  return info_;
}

}  // namespace scripted

namespace Pexal::PDBus {

RPCClient::~RPCClient() = default;
RPCServer::~RPCServer() = default;
IEventBus::~IEventBus() = default;
IDDSFactory::~IDDSFactory() = default;
IBaseDDSReader::~IBaseDDSReader() = default;
IDDSSubcriber::~IDDSSubcriber() = default;

const char* RPCServer::dumpCode(std::uint32_t status) noexcept {
  switch (static_cast<RpcStatus>(status)) {
    case RpcStatus::kTimeout:
      return "scripted time-out";
    case RpcStatus::kNoServer:
      return "scripted absence";
    default:
      return "scripted failure";
  }
}

std::shared_ptr<IDDSFactory> IDDSFactory::create() {
  return std::make_shared<scripted::Factory>();
}

std::shared_ptr<IDDSFactory> IDDSFactory::instance() {
  // Never destroyed: statics of the code under test may still ask for it while the process ends.
  static const auto* const factory =
      new std::shared_ptr<IDDSFactory>(std::make_shared<scripted::Factory>());
  return *factory;
}

std::shared_ptr<RPCClient> RPCClient::instance(const std::string& server) {
  return IDDSFactory::instance()->rpcClient(server);
}

std::shared_ptr<IEventBus> IEventBus::instance(const std::string& server) {
  return IDDSFactory::instance()->eventBus(server);
}

std::shared_ptr<IDDSSubcriber> IDDSSubcriber::instance(const std::string& domain,
                                                       const std::string& topic) {
  return IDDSFactory::instance()->subscriber(domain, topic);
}

dds::sub::qos::DataReaderQos IDDSSubcriber::createDDSQos(const Json::Value& document) {
  if (const auto state = scripted::Bus::State::current()) {
    const std::lock_guard lock(state->mutex);
    state->qosDocuments.push_back(document);
  }
  return dds::sub::qos::DataReaderQos();
}

}  // namespace Pexal::PDBus
