#include "EventBusOutbox.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "EndpointLife.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace Pexal::PDBus {

using Lock = std::unique_lock<PBase::CMutex>;

EventBusOutbox::EventBusOutbox(std::function<void()> wake)
    : id_(Utils::createRandomUUIDBytes()), wake_(std::move(wake)) {}

bool EventBusOutbox::publish(const std::string& topic, const std::string& payload,
                             std::uint32_t openMs) {
  if (writer_ <= 0 || topic.empty() || topic.size() > kMaxEventTopic ||
      payload.size() > kMaxEventPayload) {
    return false;
  }
  Lock lock(mutex_);
  const EventPtr event = number(topic, payload, openMs);
  if (backlog_.empty()) {
    lock.unlock();
    const dds_return_t result = write(*event);
    if (result == DDS_RETCODE_OK) return true;
    lock.lock();
    if (result != DDS_RETCODE_TIMEOUT) {
      std::erase(open_, event);
      return false;
    }
  }
  const bool held = holdBack(event);
  if (!held) std::erase(open_, event);
  lock.unlock();
  wake_();
  return held;
}

EventBusOutbox::EventPtr EventBusOutbox::number(const std::string& topic,
                                                const std::string& payload, std::uint32_t openMs) {
  if (openMs == 0) {
    return std::make_shared<const Event>(Event{++lastPlain_, topic, payload, 0});
  }
  const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
  std::uint64_t untilUs = deadlineAfter(openMs);
  // The same event again takes the place of the one before: a late-comer needs it once.
  std::erase_if(open_, [&](const EventPtr& other) {
    const bool same = other->topic == topic && other->payload == payload;
    if (same) untilUs = std::max(untilUs, other->openUntilUs);
    return same || other->openUntilUs <= now;
  });
  if (open_.size() >= kMaxOpen) open_.pop_front();
  // Kept before it is written: a reader that is matched in between gets it one way or the other,
  // and drops the second copy.
  open_.push_back(std::make_shared<const Event>(Event{++lastOpen_, topic, payload, untilUs}));
  return open_.back();
}

bool EventBusOutbox::holdBack(const EventPtr& event) {
  const std::size_t bytes = backlogBytes_ + event->payload.size();
  if (backlog_.size() >= kMaxBacklog || bytes > kMaxBacklogBytes) return false;
  backlogBytes_ = bytes;
  backlog_.push_back(event);
  return true;
}

void EventBusOutbox::repeatOpen() {
  const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
  std::size_t left = 0;
  {
    const Lock lock(mutex_);
    for (const EventPtr& event : open_) {
      const bool waiting = std::ranges::find(backlog_, event) != backlog_.end();
      if (event->openUntilUs > now && !waiting && !holdBack(event)) ++left;
    }
  }
  if (left > 0 && log_.permit()) {
    ILogger::instance()->log(3, kLogTag, "event bus: no room to repeat %zu events\n", left);
  }
}

bool EventBusOutbox::pump() {
  Lock lock(mutex_);
  while (!backlog_.empty()) {
    const EventPtr event = backlog_.front();
    lock.unlock();
    const dds_return_t result = write(*event);
    if (result == DDS_RETCODE_TIMEOUT) return true;
    if (result != DDS_RETCODE_OK && log_.permit()) {
      ILogger::instance()->log(3, kLogTag, "event bus: an event on %.64s was not sent: %s\n",
                               event->topic.c_str(), dds_strretcode(result));
    }
    lock.lock();
    backlog_.pop_front();
    backlogBytes_ -= event->payload.size();
  }
  return false;
}

dds_return_t EventBusOutbox::write(const Event& event) const {
  Pexal_PDBus_Event sample{};
  std::memcpy(sample.publisher, id_.data(), id_.size());
  sample.number = event.number;
  if (event.openUntilUs > 0) {
    const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
    const std::uint64_t leftUs = event.openUntilUs > now ? event.openUntilUs - now : 0;
    sample.openMs = static_cast<std::uint32_t>(leftUs / 1000 + 1);  // 0 would make it a plain one
  }
  sample.topic = const_cast<char*>(event.topic.c_str());  // only read
  sample.payload = octetsOf(event.payload);
  return dds_write(writer_, &sample);
}

}  // namespace Pexal::PDBus
