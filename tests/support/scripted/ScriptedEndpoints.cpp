#include <algorithm>
#include <cerrno>
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
constexpr auto kStopped = static_cast<std::uint32_t>(RpcStatus::kStopped);

/// Simulated duration. Unlike CThread::sleep it isn't cut short by a cancellation, and neither is a
/// request that is under way.
void pass(std::uint32_t ms) {
  if (ms == 0) return;
  Pexal::PBase::CSemaphore nobodyPosts(0);
  static_cast<void>(nobodyPosts.wait(ms));
}

/// What `action` gives for the living bus, called under its mutex; false or null without one.
template <class Action>
auto withBus(const Action& action) -> decltype(action(StatePtr())) {
  const StatePtr state = Bus::State::current();
  if (state == nullptr) return {};
  const std::lock_guard lock(state->mutex);
  return action(state);
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
      state_->seen.requests.push_back(request);
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
    state_->seen.published.push_back({server_, topic, payload, openMs});
    return state_->behaviour.publish;
  }

  bool subscribe(const std::string& topic, const Pexal::PDBus::EventHandler& handler) override {
    const std::lock_guard lock(state_->mutex);
    if (state_->gone) return false;
    if (find(topic, handler) == state_->handlers.end()) {
      state_->handlers.push_back({server_, topic, handler});
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
      return entry.server == server_ && entry.topic == topic && entry.call == handler;
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
    if (state_->behaviour.failingReader == topic_) throw dds::core::Error("scripted failure");
    auto reader = std::make_shared<Reader>(ReaderInfo{domain_, topic_, std::move(takesWriter)},
                                           std::move(onSample));
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
    withBus([](const StatePtr& state) { return ++state->seen.factoryShutdowns; });
  }

  bool initial(const Json::Value& document) override {
    return withBus([&](const StatePtr& state) {
      state->seen.factoryDocuments.push_back(document);
      return state->behaviour.factory;
    });
  }

  std::shared_ptr<Pexal::PDBus::RPCClient> rpcClient(const std::string& server) override {
    return withBus([&](const StatePtr& state) {
      ++state->seen.rpcClients[server];
      return state->behaviour.rpc ? std::make_shared<Client>(state, server) : nullptr;
    });
  }

  std::shared_ptr<Pexal::PDBus::IEventBus> eventBus(const std::string& server) override {
    return withBus([&](const StatePtr& state) {
      return state->behaviour.eventBus ? std::make_shared<EventBus>(state, server) : nullptr;
    });
  }

  std::shared_ptr<Pexal::PDBus::IDDSSubcriber> subscriber(const std::string& domain,
                                                          const std::string& topic) override {
    return withBus([&](const StatePtr& state) {
      return state->behaviour.subscribers ? std::make_shared<Subscriber>(state, domain, topic)
                                          : nullptr;
    });
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
    const std::lock_guard lock(mutex_);
    if (info_.removed || info_.topic != topic) return false;
  }
  onSample_(sample);
  return true;
}

void Reader::remove() {
  const std::lock_guard lock(mutex_);
  info_.removed = true;
}

ReaderInfo Reader::info() {
  const std::lock_guard lock(mutex_);
  return info_;
}

}  // namespace scripted

namespace Pexal::PDBus {

const char* RPCServer::dumpCode(std::uint32_t status) noexcept {
  return status == scripted::kTimeout ? "scripted time-out" : "scripted failure";
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

dds::sub::qos::DataReaderQos IDDSSubcriber::createDDSQos(const Json::Value& document) {
  scripted::withBus([&](const auto& state) {
    state->seen.qosDocuments.push_back(document);
    return true;
  });
  return dds::sub::qos::DataReaderQos();
}

}  // namespace Pexal::PDBus
