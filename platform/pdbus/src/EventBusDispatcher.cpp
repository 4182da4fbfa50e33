#include "EventBusDispatcher.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>

#include "EndpointLife.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace Pexal::PDBus {

using Lock = std::unique_lock<PBase::CMutex>;

EventBusDispatcher::EventBusDispatcher(std::string server, std::size_t maxTopics,
                                       std::size_t queuePerTopic)
    : server_(std::move(server)), maxTopics_(maxTopics), queuePerTopic_(queuePerTopic) {}

bool EventBusDispatcher::subscribe(const std::string& topic, const EventHandler& handler) {
  const auto added = std::make_shared<const EventHandler>(handler);
  const Lock lock(mutex_);
  if (stopped_) return false;
  auto found = topics_.find(topic);
  if (found == topics_.end() || found->second.handlers.empty()) {
    if (subscribedTopics_ >= maxTopics_) return false;
    ++subscribedTopics_;
    if (found == topics_.end()) found = topics_.try_emplace(topic).first;
  }
  auto& handlers = found->second.handlers;
  const bool first = handlers.empty();
  const bool known =
      std::ranges::any_of(handlers, [&handler](const Handler& other) { return *other == handler; });
  if (!known) handlers.push_back(added);
  if (first) claim(*found);
  return true;
}

bool EventBusDispatcher::unsubscribe(const std::string& topic, const EventHandler& handler) {
  std::deque<EventSample> unread;  // freed outside the lock
  Handler removed;                 // likewise: it may hold the last reference to its owner
  const Lock lock(mutex_);
  const auto found = topics_.find(topic);
  if (found == topics_.end()) return false;
  auto& handlers = found->second.handlers;
  const auto position = std::ranges::find_if(
      handlers, [&handler](const Handler& other) { return *other == handler; });
  if (position == handlers.end()) return false;
  removed = std::move(*position);
  handlers.erase(position);
  if (handlers.empty()) {
    --subscribedTopics_;
    unread.swap(found->second.queue);
    std::erase(ready_, &*found);
    if (!found->second.running) topics_.erase(found);
  }
  return true;
}

bool EventBusDispatcher::isSubscribed(const char* topic) {
  const Lock lock(mutex_);
  const auto found = topics_.find(topic);
  return !stopped_ && found != topics_.end() && !found->second.handlers.empty();
}

void EventBusDispatcher::enqueue(EventSample event) {
  EventSample lost;  // freed outside the lock
  const Lock lock(mutex_);
  if (stopped_) return;
  const auto found = topics_.find(event.value.topic);
  if (found == topics_.end() || found->second.handlers.empty()) {
    if (event.value.openMs > 0) keepUnclaimed(std::move(event));
    return;
  }
  lost = push(*found, std::move(event));
}

EventSample EventBusDispatcher::push(TopicEntry& entry, EventSample event) {
  Topic& topic = entry.second;
  const bool idle = topic.queue.empty() && !topic.running;  // otherwise a worker comes by anyway
  EventSample lost;
  if (topic.queue.size() >= queuePerTopic_) {
    lost = std::move(topic.queue.front());
    topic.queue.pop_front();
    ++dropped_;
  }
  topic.queue.push_back(std::move(event));
  if (idle) {
    ready_.push_back(&entry);
    workAdded_.notifyOne();
  }
  return lost;
}

void EventBusDispatcher::keepUnclaimed(EventSample event) {
  if (unclaimed_.size() >= kMaxUnclaimed) unclaimed_.pop_front();
  const std::uint32_t openMs = std::min(event.value.openMs, kMaxOpenMs);
  unclaimed_.push_back({std::move(event), deadlineAfter(openMs)});
}

void EventBusDispatcher::claim(TopicEntry& entry) {
  const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
  std::erase_if(unclaimed_, [&](Unclaimed& unclaimed) {
    if (unclaimed.deadlineUs <= now) return true;
    if (entry.first != unclaimed.event.value.topic) return false;
    push(entry, std::move(unclaimed.event));
    return true;
  });
}

void EventBusDispatcher::beginStop() {
  const Lock lock(mutex_);
  stopped_ = true;
  ready_.clear();
  workAdded_.notifyAll();
}

void EventBusDispatcher::work() {
  constexpr std::uint64_t kIdleMs = 60000;
  Lock lock(mutex_);
  while (!stopped_) {
    if (!workAdded_.waitUntil(lock, deadlineAfter(kIdleMs),
                              [this] { return stopped_ || !ready_.empty(); }) ||
        stopped_) {
      continue;
    }
    TopicEntry& entry = *ready_.front();  // stays in topics_ while it is running
    ready_.pop_front();
    entry.second.running = true;
    {
      const EventSample event = std::move(entry.second.queue.front());
      entry.second.queue.pop_front();
      const std::vector<Handler> handlers = entry.second.handlers;
      const std::uint32_t dropped = std::exchange(dropped_, 0);
      lock.unlock();
      reportDrops(dropped);
      deliver(entry, event, handlers);
    }  // what the handlers and the event hold is freed before the lock is taken again
    lock.lock();
    settle(entry);
  }
}

void EventBusDispatcher::settle(TopicEntry& entry) {
  entry.second.running = false;
  if (entry.second.handlers.empty()) {
    topics_.erase(topics_.find(entry.first));
  } else if (!entry.second.queue.empty() && !stopped_) {
    ready_.push_back(&entry);  // behind the other topics; this worker goes on, no need to wake one
  }
}

void EventBusDispatcher::deliver(const TopicEntry& entry, const EventSample& event,
                                 const std::vector<Handler>& handlers) {
  Json::Value payload;
  if (!Utils::stringToJson(textOf(event.value.payload), payload)) {
    if (payloadLog_.permit()) {
      ILogger::instance()->log(3, kLogTag, "event bus %s: dropped an event on %.64s: no JSON\n",
                               server_.c_str(), entry.first.c_str());
    }
    return;
  }
  for (const Handler& handler : handlers) {
    if (mayCall(entry, handler)) call(entry.first, *handler, payload);
  }
}

bool EventBusDispatcher::mayCall(const TopicEntry& entry, const Handler& handler) {
  const Lock lock(mutex_);
  return !stopped_ &&
         std::ranges::find(entry.second.handlers, handler) != entry.second.handlers.end();
}

void EventBusDispatcher::call(const std::string& topic, const EventHandler& handler,
                              const Json::Value& payload) {
  try {
    handler(topic, payload);
  } catch (const std::exception& failure) {
    ILogger::instance()->log(4, kLogTag, "event bus %s: a handler of %.64s threw: %s\n",
                             server_.c_str(), topic.c_str(), failure.what());
  } catch (...) {
    ILogger::instance()->log(4, kLogTag, "event bus %s: a handler of %.64s threw\n",
                             server_.c_str(), topic.c_str());
  }
}

void EventBusDispatcher::reportDrops(std::uint32_t dropped) {
  if (dropped > 0 && dropLog_.permit()) {
    ILogger::instance()->log(3, kLogTag,
                             "event bus %s: a slow handler, dropped the %u oldest events\n",
                             server_.c_str(), dropped);
  }
}

}  // namespace Pexal::PDBus
