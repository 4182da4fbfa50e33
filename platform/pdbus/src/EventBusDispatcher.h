#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "EndpointEntity.h"
#include "EventBusWire.h"
#include "pbase/CMutex.h"
#include "pdbus/IEventBus.h"

namespace Pexal::PDBus {

/// Subscriptions of one bus, a bounded queue per topic, and the loop of the workers that call the
/// handlers: one worker at a time per topic, in order; different topics side by side. An open event
/// that finds no subscription waits for one while it is open, since a peer that starts is matched
/// before it has subscribed.
///
/// Threading: everything from any thread; work() is the body of each worker. mutex_ is a leaf: it
/// is never held while a handler runs, a payload is parsed or something is logged.
class EventBusDispatcher {
 public:
  EventBusDispatcher(std::string server, std::size_t maxTopics, std::size_t queuePerTopic);

  /// False: stopped, or too many topics.
  bool subscribe(const std::string& topic, const EventHandler& handler);
  bool unsubscribe(const std::string& topic, const EventHandler& handler);
  [[nodiscard]] bool isSubscribed(const char* topic);
  /// Queues the event for its topic's handlers. A full queue loses its oldest event. Never blocks,
  /// never logs.
  void enqueue(EventSample event);
  void work();
  /// No handler call begins after this. Doesn't wait.
  void beginStop();

 private:
  using Handler = std::shared_ptr<const EventHandler>;
  struct Topic {
    std::vector<Handler> handlers;
    std::deque<EventSample> queue;
    bool running = false;  ///< a worker is on it
  };
  using TopicEntry = std::pair<const std::string, Topic>;
  struct Unclaimed {
    EventSample event;
    std::uint64_t deadlineUs;
  };
  static constexpr std::size_t kMaxUnclaimed = 16;
  static constexpr std::uint32_t kMaxOpenMs = 600'000;

  /// Both under mutex_. The first returns what the full queue lost.
  EventSample push(TopicEntry& entry, EventSample event);
  void keepUnclaimed(EventSample event);
  void claim(TopicEntry& entry);
  void deliver(const TopicEntry& entry, const EventSample& event,
               const std::vector<Handler>& handlers);
  void call(const std::string& topic, const EventHandler& handler, const Json::Value& payload);
  [[nodiscard]] bool mayCall(const TopicEntry& entry, const Handler& handler);
  void settle(TopicEntry& entry);
  void reportDrops(std::uint32_t dropped);

  const std::string server_;
  const std::size_t maxTopics_;
  const std::size_t queuePerTopic_;
  LogLimiter dropLog_;
  LogLimiter payloadLog_;

  PBase::CMutex mutex_;  // guards what follows
  PBase::CCondition workAdded_;
  bool stopped_ = false;
  std::uint32_t dropped_ = 0;
  /// Topics with a handler, and those whose last handler left while a worker is still on them.
  std::unordered_map<std::string, Topic> topics_;
  std::size_t subscribedTopics_ = 0;
  std::deque<Unclaimed> unclaimed_;
  std::deque<TopicEntry*> ready_;  ///< have events queued and no worker on them
};

}  // namespace Pexal::PDBus
