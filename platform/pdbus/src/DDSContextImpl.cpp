#include "DDSContextImpl.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <mutex>

#include "DDSContextLog.h"
#include "DomainRegistry.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"

namespace Pexal::PDBus {
namespace {

constexpr const char* kUnit = "IDDSFactory";

/// Runs the tasks side by side and returns when all are done. Each may take libddsc a second (a
/// writer whose peer is dead): one after the other they would add up.
void runSideBySide(const std::vector<std::function<void()>>& tasks) {
  std::vector<std::unique_ptr<PBase::CThreadLite>> threads;
  for (std::size_t i = 1; i < tasks.size(); ++i) {
    auto thread = std::make_unique<PBase::CThreadLite>("pdbus:stop", 0, 0, 0, tasks[i]);
    if (thread->createThread()) {
      threads.push_back(std::move(thread));
    } else {
      tasks[i]();
    }
  }
  if (!tasks.empty()) tasks.front()();
}  // the threads are joined here

/// The publishers and subscribers that the application has left on a participant.
std::vector<dds_entity_t> groupsOf(dds_entity_t participant) {
  const dds_return_t count = dds_get_children(participant, nullptr, 0);
  if (count <= 0) return {};
  std::vector<dds_entity_t> children(static_cast<std::size_t>(count));
  const dds_return_t filled = dds_get_children(participant, children.data(), children.size());
  children.resize(static_cast<std::size_t>(std::clamp<dds_return_t>(filled, 0, count)));
  std::erase_if(children,
                [](dds_entity_t child) { return dds_get_children(child, nullptr, 0) <= 0; });
  return children;
}

template <class T>
void dropExpired(std::vector<std::weak_ptr<T>>& list) {
  std::erase_if(list, [](const std::weak_ptr<T>& entry) { return entry.expired(); });
}

template <class T>
std::vector<std::shared_ptr<T>> alive(const std::vector<std::weak_ptr<T>>& list) {
  std::vector<std::shared_ptr<T>> result;
  for (const std::weak_ptr<T>& entry : list) {
    if (auto strong = entry.lock()) result.push_back(std::move(strong));
  }
  return result;
}

}  // namespace

std::shared_ptr<IDDSFactory> IDDSFactory::instance() {
  // Never destroyed: threads of the application may still use it while statics are.
  static auto* const factory = new std::shared_ptr<IDDSFactory>(std::make_shared<DDSContextImpl>());
  return *factory;
}

std::shared_ptr<IDDSFactory> IDDSFactory::create() {
  return std::make_shared<DDSContextImpl>();
}

DDSContextImpl::~DDSContextImpl() {
  shutdown();
}

bool DDSContextImpl::initial(const Json::Value& document) {
  const std::lock_guard lifecycle(lifecycleMutex_);
  if (snapshot()) return true;
  if (!document.isObject()) {
    if (!document.isNull()) PDBUS_LOG(4, kUnit, "the dds document is no object\n");
    return false;
  }
  const auto state = std::make_shared<State>();
  if (!build(DDSContextDocument::parse(document), *state)) {
    stop(*state, endpointsOf(*state), {}, {});
    return false;
  }

  Readers readers;  // outlives the lock: dropping the last reference to a reader may wait
  const std::lock_guard attaching(attachMutex_);
  publish(state);
  dropExpired(readers_);
  readers = alive(readers_);
  for (const auto& reader : readers) {
    const auto domain = state->domains.find(reader->domain());
    if (domain == state->domains.end()) continue;
    deliveries_.push_back(reader->rebind(domain->second.participant));
  }
  return true;
}

bool DDSContextImpl::build(const DDSContextDocument& document, State& state) {
  try {
    return joinDomains(document, state) && makeEndpoints(document, state);
  } catch (const std::exception& error) {
    PDBUS_LOG(4, kUnit, "dds start exception:%s\n", error.what());
    return false;
  }
}

bool DDSContextImpl::joinDomains(const DDSContextDocument& document, State& state) {
  for (const DDSContextDocument::Domain& domain : document.domains) {
    try {
      auto participant = DomainRegistry::instance().join(domain.id, domain.url);
      state.domains.emplace(domain.name, JoinedDomain{domain.id, std::move(participant)});
    } catch (const dds::core::Exception& error) {
      PDBUS_LOG(4, kUnit, "join dds domain %s(%u) failed: %s\n", domain.name.c_str(), domain.id,
                error.what());
      return false;
    }
  }
  return true;
}

bool DDSContextImpl::makeEndpoints(const DDSContextDocument& document, State& state) {
  const auto participantOn = [&](const std::string& domain) {
    return state.domains.at(domain).participant.get_ddsc_entity();
  };
  for (const DDSContextDocument::Client& client : document.clients) {
    auto endpoint = makeRpcClient(participantOn(client.domain), client.server);
    if (!endpoint) return false;
    state.clients.emplace(client.server, std::move(endpoint));
  }
  for (const DDSContextDocument::Bus& bus : document.buses) {
    auto endpoint = makeEventBus(participantOn(bus.domain), bus.settings);
    if (!endpoint) return false;
    state.buses.emplace(bus.settings.server, std::move(endpoint));
  }
  return true;
}

void DDSContextImpl::shutdown() {
  const std::lock_guard lifecycle(lifecycleMutex_);
  const auto state = snapshot();
  if (!state) return;

  Endpoints endpoints = endpointsOf(*state);
  Readers readers;
  Deliveries deliveries;
  {
    const std::lock_guard attaching(attachMutex_);
    publish(nullptr);
    for (auto& endpoint : alive(endpoints_)) endpoints.push_back(std::move(endpoint));
    endpoints_.clear();
    readers = alive(readers_);
    deliveries = alive(deliveries_);
    deliveries_.clear();
  }
  stop(*state, endpoints, readers, deliveries);
}

DDSContextImpl::Endpoints DDSContextImpl::endpointsOf(const State& state) {
  Endpoints result;
  for (const auto& [server, client] : state.clients) result.push_back(client);
  for (const auto& [server, bus] : state.buses) result.push_back(bus);
  return result;
}

void DDSContextImpl::stop(const State& state, const Endpoints& endpoints, const Readers& readers,
                          const Deliveries& deliveries) {
  for (const auto& endpoint : endpoints) endpoint->beginStop();
  for (const auto& reader : readers) reader->beginStop();

  std::vector<std::function<void()>> finishing;
  for (const auto& endpoint : endpoints) {
    finishing.emplace_back([endpoint] { endpoint->finishStop(); });
  }
  runSideBySide(finishing);

  const std::uint64_t deadlineUs =
      PBase::CTime::getCurrentMicroSecond() + Reader::kCallbackWaitMs * std::uint64_t{1000};
  for (const auto& reader : readers) reader->finishStop(deadlineUs);
  for (const auto& delivery : deliveries) delivery->finishStop(deadlineUs);
  leaveDomains(state);
}

void DDSContextImpl::leaveDomains(const State& state) {
  std::vector<std::function<void()>> closing;
  for (const auto& [name, domain] : state.domains) {
    for (const dds_entity_t group : groupsOf(domain.participant.handle()->entity())) {
      closing.emplace_back([group] { static_cast<void>(dds_delete(group)); });
    }
  }
  runSideBySide(closing);
  for (const auto& [name, domain] : state.domains) {
    auto participant = domain.participant;
    participant.close();
    DomainRegistry::instance().leave(domain.id);
  }
}

void DDSContextImpl::publish(std::shared_ptr<const State> state) {
  const std::lock_guard lock(snapshotMutex_);
  state_ = std::move(state);
}

std::shared_ptr<const DDSContextImpl::State> DDSContextImpl::snapshot() {
  const std::lock_guard lock(snapshotMutex_);
  return state_;
}

std::shared_ptr<RPCClient> DDSContextImpl::rpcClient(const std::string& server) {
  const auto state = snapshot();
  if (!state) return nullptr;
  const auto found = state->clients.find(server);
  return found == state->clients.end() ? nullptr : found->second;
}

std::shared_ptr<IEventBus> DDSContextImpl::eventBus(const std::string& server) {
  const auto state = snapshot();
  if (!state) return nullptr;
  const auto found = state->buses.find(server);
  return found == state->buses.end() ? nullptr : found->second;
}

std::shared_ptr<IDDSSubcriber> DDSContextImpl::subscriber(const std::string& domain,
                                                          const std::string& topic) {
  const std::lock_guard lock(snapshotMutex_);
  if (!state_ || topic.empty() || state_->domains.count(domain) == 0) return nullptr;
  std::erase_if(subscribers_, [](const auto& entry) { return entry.second.expired(); });
  auto& cached = subscribers_[{domain, topic}];
  auto result = cached.lock();
  if (!result) {
    result = std::make_shared<Subscriber>(weak_from_this(), domain, topic);
    cached = result;
  }
  return result;
}

dds::domain::DomainParticipant DDSContextImpl::participant(const std::string& domain) {
  const auto state = snapshot();
  if (!state) return dds::core::null;
  const auto found = state->domains.find(domain);
  if (found == state->domains.end()) return dds::core::null;
  return found->second.participant;
}

dds_entity_t DDSContextImpl::participantOf(const std::string& domain) {
  const auto found = participant(domain);
  return found.is_nil() ? 0 : found.handle()->entity();
}

bool DDSContextImpl::attach(const std::weak_ptr<Stoppable>& endpoint) {
  const std::lock_guard attaching(attachMutex_);
  if (!snapshot()) return false;
  dropExpired(endpoints_);
  endpoints_.push_back(endpoint);
  return true;
}

void DDSContextImpl::adopt(const std::shared_ptr<Reader>& reader) {
  const std::lock_guard attaching(attachMutex_);
  const auto on = participant(reader->domain());
  if (on.is_nil()) throw dds::core::NotEnabledError("the dds layer isn't started");
  dropExpired(deliveries_);
  deliveries_.push_back(reader->bind(on));
  dropExpired(readers_);
  readers_.push_back(reader);
}

}  // namespace Pexal::PDBus
