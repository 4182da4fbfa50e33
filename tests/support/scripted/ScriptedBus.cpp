#include "ScriptedBus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "ScriptedState.h"

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
  std::vector<std::unique_ptr<Pexal::PBase::CThreadLite>> injectors;
  {
    const std::lock_guard lock(state_->mutex);
    state_->gone = true;
    state_->handler = nullptr;
    state_->handlers.clear();
    injectors.swap(state_->injectors);
  }
}

void Bus::onRequest(RpcHandler handler) {
  const std::lock_guard lock(state_->mutex);
  state_->handler = std::move(handler);
}

std::vector<Request> Bus::requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

std::vector<Request> Bus::requests(const std::string& method) const {
  std::vector<Request> found = requests();
  std::erase_if(found, [&](const Request& request) { return request.method != method; });
  return found;
}

void Bus::forgetRequests() {
  const std::lock_guard lock(state_->mutex);
  state_->requests.clear();
}

void Bus::setRpcAvailable(bool available) {
  const std::lock_guard lock(state_->mutex);
  state_->rpcAvailable = available;
}

std::size_t Bus::rpcClientsAsked(const std::string& server) const {
  const std::lock_guard lock(state_->mutex);
  const auto found = state_->clientsAsked.find(server);
  return found == state_->clientsAsked.end() ? 0 : found->second;
}

std::size_t Bus::inject(const std::string& server, const std::string& topic,
                        const Json::Value& payload) {
  std::vector<Pexal::PDBus::EventHandler> matching;
  {
    const std::lock_guard lock(state_->mutex);
    for (const auto& handler : state_->handlers) {
      if (handler.where.server == server && handler.where.topic == topic) {
        matching.push_back(handler.call);
      }
    }
  }
  for (const auto& handler : matching) handler(topic, payload);
  return matching.size();
}

void Bus::injectFromThread(const std::string& server, const std::string& topic,
                           const Json::Value& payload) {
  auto thread = std::make_unique<Pexal::PBase::CThreadLite>(
      "injector", 0, 0, 0, [this, server, topic, payload] { inject(server, topic, payload); });
  if (!thread->createThread()) throw std::runtime_error("no thread to inject from");
  const std::lock_guard lock(state_->mutex);
  state_->injectors.push_back(std::move(thread));
}

std::vector<Published> Bus::published() const {
  const std::lock_guard lock(state_->mutex);
  return state_->published;
}

std::vector<Subscription> Bus::subscriptions() const {
  const std::lock_guard lock(state_->mutex);
  std::vector<Subscription> all;
  for (const auto& handler : state_->handlers) all.push_back(handler.where);
  return all;
}

void Bus::setPublishResult(bool result) {
  const std::lock_guard lock(state_->mutex);
  state_->publishResult = result;
}

void Bus::setEventBusAvailable(bool available) {
  const std::lock_guard lock(state_->mutex);
  state_->eventBusAvailable = available;
}

std::vector<Json::Value> Bus::factoryDocuments() const {
  const std::lock_guard lock(state_->mutex);
  return state_->factoryDocuments;
}

std::size_t Bus::factoryShutdowns() const {
  const std::lock_guard lock(state_->mutex);
  return state_->factoryShutdowns;
}

void Bus::setFactoryResult(bool result) {
  const std::lock_guard lock(state_->mutex);
  state_->factoryResult = result;
}

std::size_t Bus::pushSample(const std::string& topic, const void* sample) {
  std::vector<std::shared_ptr<Reader>> readers;
  {
    const std::lock_guard lock(state_->mutex);
    readers = state_->readers;
  }
  return static_cast<std::size_t>(std::count_if(
      readers.begin(), readers.end(),
      [&](const std::shared_ptr<Reader>& reader) { return reader->push(topic, sample); }));
}

std::vector<ReaderInfo> Bus::readers() const {
  std::vector<std::shared_ptr<Reader>> readers;
  {
    const std::lock_guard lock(state_->mutex);
    readers = state_->readers;
  }
  std::vector<ReaderInfo> infos;
  for (const auto& reader : readers) infos.push_back(reader->info());
  return infos;
}

std::vector<Json::Value> Bus::qosDocuments() const {
  const std::lock_guard lock(state_->mutex);
  return state_->qosDocuments;
}

void Bus::setSubscribersAvailable(bool available) {
  const std::lock_guard lock(state_->mutex);
  state_->subscribersAvailable = available;
}

void Bus::failReaderCreation(const std::string& topic) {
  const std::lock_guard lock(state_->mutex);
  state_->failingReaderTopic = topic;
}

}  // namespace scripted
