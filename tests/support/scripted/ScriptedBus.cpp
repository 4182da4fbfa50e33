#include "ScriptedBus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "ScriptedState.h"
#include "pdbus/DomainMember.h"

namespace scripted {
namespace {

std::mutex currentMutex;  // guards currentState
std::weak_ptr<Bus::State> currentState;

}  // namespace

std::shared_ptr<Bus::State> Bus::State::current() {
  const std::lock_guard lock(currentMutex);
  return currentState.lock();
}

Reply accepted(Json::Value params) {
  Reply reply;
  reply.document["result"] = true;
  if (!params.isNull()) reply.document["params"] = std::move(params);
  return reply;
}

Reply refused(std::uint32_t reason, Json::Value params) {
  Reply reply = accepted(std::move(params));
  reply.document["result"] = false;
  reply.reason = reason;
  return reply;
}

Reply transportFailure(std::uint32_t status) {
  Reply reply;
  reply.status = status;
  return reply;
}

Bus::Bus() : state_(std::make_shared<State>()) {
  const std::lock_guard lock(currentMutex);
  if (!currentState.expired()) throw std::logic_error("a scripted bus exists already");
  currentState = state_;
}

Bus::~Bus() {
  {
    const std::lock_guard lock(currentMutex);
    currentState.reset();
  }
  std::vector<std::unique_ptr<Pexal::PBase::CThreadLite>> injectors;  // joined unlocked
  const std::lock_guard lock(state_->mutex);
  state_->gone = true;
  state_->handler = nullptr;
  state_->handlers.clear();
  injectors.swap(state_->injectors);
}

void Bus::behave(const Behaviour& behaviour) {
  const std::lock_guard lock(state_->mutex);
  state_->behaviour = behaviour;
}

void Bus::onRequest(RpcHandler handler) {
  const std::lock_guard lock(state_->mutex);
  state_->handler = std::move(handler);
}

void Bus::inject(const std::string& server, const std::string& topic, const Json::Value& payload) {
  std::vector<State::Handler> handlers;
  {
    const std::lock_guard lock(state_->mutex);
    handlers = state_->handlers;
  }
  for (const auto& handler : handlers) {
    if (handler.server == server && handler.topic == topic) handler.call(topic, payload);
  }
}

void Bus::injectFromThread(const std::string& server, const std::string& topic,
                           const Json::Value& payload) {
  auto thread = std::make_unique<Pexal::PBase::CThreadLite>(
      "injector", 0, 0, 0, [this, server, topic, payload] { inject(server, topic, payload); });
  if (!thread->createThread()) throw std::runtime_error("no thread to inject from");
  const std::lock_guard lock(state_->mutex);
  state_->injectors.push_back(std::move(thread));
}

std::size_t Bus::pushSample(const std::string& topic, const void* sample) {
  std::vector<std::shared_ptr<Reader>> readers;
  {
    const std::lock_guard lock(state_->mutex);
    readers = state_->readers;
  }
  return static_cast<std::size_t>(
      std::count_if(readers.begin(), readers.end(),
                    [&](const auto& reader) { return reader->push(topic, sample); }));
}

Seen Bus::seen() const {
  const std::lock_guard lock(state_->mutex);
  return state_->seen;
}

std::vector<Request> Bus::requests(const std::string& method) const {
  std::vector<Request> found = seen().requests;
  std::erase_if(
      found, [&](const Request& request) { return !method.empty() && request.method != method; });
  return found;
}

void Bus::forgetRequests() {
  const std::lock_guard lock(state_->mutex);
  state_->seen.requests.clear();
}

std::vector<std::string> Bus::subscribedTopics() const {
  const std::lock_guard lock(state_->mutex);
  std::vector<std::string> topics;
  for (const auto& handler : state_->handlers) topics.push_back(handler.topic);
  return topics;
}

std::vector<ReaderInfo> Bus::readers() const {
  const std::lock_guard lock(state_->mutex);
  std::vector<ReaderInfo> infos;
  for (const auto& reader : state_->readers) infos.push_back(reader->info());
  return infos;
}

}  // namespace scripted

// There is no DDS beside the script.
namespace Pexal::PDBus {

DomainMember::DomainMember(std::uint32_t domain, const std::optional<std::string>&)
    : domain_(domain) {
  throw dds::core::Error("no dds domain " + std::to_string(domain_) + " beside a scripted bus");
}
DomainMember::~DomainMember() = default;
void DomainMember::announceEnd() noexcept {
  isLeaving_ = true;
}

}  // namespace Pexal::PDBus
