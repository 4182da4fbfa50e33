#include "EventOutbox.h"

#include <mutex>
#include <utility>

namespace orvane::robot {
namespace {

constexpr std::size_t kMostEvents = 256;

}  // namespace

void EventOutbox::controlStatus(bool controlled, const std::string& controller) {
  Json::Value payload;
  payload["controlled"] = controlled;
  payload["controller"] = controller;
  put({".control.status", std::move(payload)});
}

void EventOutbox::hostEvent(Json::Value detail) {
  Json::Value payload;
  payload["detail"] = std::move(detail);
  put({".host.event", std::move(payload)});
}

void EventOutbox::put(Event event) {
  event.payload["deviceNo"] = deviceId_;
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    if (events_.size() == kMostEvents) events_.pop_front();
    events_.push_back(std::move(event));
  }
  changed_.notifyOne();
}

std::optional<EventOutbox::Event> EventOutbox::take(std::uint64_t deadlineUs) {
  std::unique_lock lock(mutex_);
  changed_.waitUntil(lock, deadlineUs, [this] { return closed_ || !events_.empty(); });
  if (events_.empty()) return std::nullopt;
  std::optional<Event> event(std::move(events_.front()));
  events_.pop_front();
  return event;
}

void EventOutbox::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  changed_.notifyAll();
}

bool EventOutbox::finished() {
  const std::lock_guard lock(mutex_);
  return closed_ && events_.empty();
}

std::shared_ptr<EventOutbox> EventOutboxes::add() {
  return outboxes_.emplace_back(std::make_shared<EventOutbox>(deviceId_));
}

void EventOutboxes::controlStatus(bool controlled, const std::string& controller) {
  for (const auto& outbox : outboxes_) outbox->controlStatus(controlled, controller);
}

void EventOutboxes::hostEvent(Json::Value detail) {
  for (const auto& outbox : outboxes_) outbox->hostEvent(detail);
}

}  // namespace orvane::robot
