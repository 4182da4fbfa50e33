#include "EventBusCore.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace Pexal::PDBus {

using Lock = std::unique_lock<PBase::CMutex>;

EventBusCore::EventBusCore(EventBusSettings settings,
                           std::shared_ptr<EventBusDispatcher> dispatcher)
    : settings_(std::move(settings)),
      dispatcher_(std::move(dispatcher)),
      writerPeers_("topic " + (settings_.serverRole ? eventsToServer(settings_.server)
                                                    : eventsToClients(settings_.server)),
                   [this] { noteMatchesChanged(); }),
      readerPeers_("topic " + (settings_.serverRole ? eventsToClients(settings_.server)
                                                    : eventsToServer(settings_.server)),
                   [this] { noteMatchesChanged(); }),
      outbox_([this] {
        const Lock lock(mutex_);
        outboxFilled_ = true;
        changed_.notifyAll();
      }) {}

bool EventBusCore::open(dds_entity_t participant) {
  const std::string toClients = eventsToClients(settings_.server);
  const std::string toServer = eventsToServer(settings_.server);
  // The reader first: who sees the writer can reach the reader.
  if (reads() && !openReader(participant, settings_.serverRole ? toServer : toClients))
    return false;
  if (writes() && !openWriter(participant, settings_.serverRole ? toClients : toServer))
    return false;
  if (settings_.serverRole && reader_) peers_.emplace(reader_.get(), writer_.get());
  return true;
}

bool EventBusCore::openReader(dds_entity_t participant, const std::string& topic) {
  readerTopic_ = checkedEntity(
      dds_create_topic(participant, &Pexal_PDBus_Event_desc, topic.c_str(), nullptr, nullptr),
      "event topic", settings_.server);
  if (!readerTopic_) return false;
  const QosPtr qos = reliableQos();
  const ListenerPtr listener = makeListener(this);
  dds_lset_data_available(listener.get(), onEvent);
  dds_lset_subscription_matched(listener.get(), onWritersChanged);
  writerPeers_.listenWith(listener.get());
  reader_ =
      checkedEntity(dds_create_reader(participant, readerTopic_.get(), qos.get(), listener.get()),
                    "event reader", settings_.server);
  return static_cast<bool>(reader_);
}

bool EventBusCore::openWriter(dds_entity_t participant, const std::string& topic) {
  writerTopic_ = checkedEntity(
      dds_create_topic(participant, &Pexal_PDBus_Event_desc, topic.c_str(), nullptr, nullptr),
      "event topic", settings_.server);
  if (!writerTopic_) return false;
  const QosPtr qos = reliableQos(EventBusOutbox::kWriteMs);
  const ListenerPtr listener = makeListener(this);
  dds_lset_publication_matched(listener.get(), onReadersChanged);
  readerPeers_.listenWith(listener.get());
  writer_ =
      checkedEntity(dds_create_writer(participant, writerTopic_.get(), qos.get(), listener.get()),
                    "event writer", settings_.server);
  outbox_.use(writer_.get());
  return static_cast<bool>(writer_);
}

bool EventBusCore::publish(const std::string& topic, const std::string& payload,
                           std::uint32_t openMs) {
  const UseGate::Pass pass = gate_.enter();
  return pass && outbox_.publish(topic, payload, openMs);
}

void EventBusCore::onReadersChanged(dds_entity_t, dds_publication_matched_status_t status,
                                    void* argument) {
  auto& core = *static_cast<EventBusCore*>(argument);
  const Lock lock(core.mutex_);
  core.matchesChanged_ = true;
  if (status.current_count_change > 0) core.readerAdded_ = true;
  core.changed_.notifyAll();
}

void EventBusCore::onWritersChanged(dds_entity_t, dds_subscription_matched_status_t,
                                    void* argument) {
  static_cast<EventBusCore*>(argument)->noteMatchesChanged();
}

void EventBusCore::noteMatchesChanged() {
  const Lock lock(mutex_);
  matchesChanged_ = true;
  changed_.notifyAll();
}

void EventBusCore::onEvent(dds_entity_t reader, void* argument) {
  auto& core = *static_cast<EventBusCore*>(argument);
  takeAll<EventSample>(reader, [&core](EventSample& sample, const dds_sample_info_t& info) {
    core.takeIn(sample, info.publication_handle);
  });
}

void EventBusCore::takeIn(EventSample& sample, dds_instance_handle_t writer) {
  const Pexal_PDBus_Event& event = sample.value;
  const std::size_t topicSize = std::strlen(event.topic);
  const std::size_t size = event.payload._length;
  const bool wanted = event.openMs > 0 || dispatcher_->isSubscribed(event.topic);

  Lock lock(mutex_);
  if (stopping_) return;
  if (topicSize == 0 || topicSize > kMaxEventTopic || size > kMaxEventPayload) {
    if (malformed_++ == 0) changed_.notifyAll();
    return;
  }
  if (!isNew(event) || !wanted) return;
  if (!settings_.serverRole) {
    lock.unlock();
    dispatcher_->enqueue(std::move(sample));
    return;
  }
  if (waiting_ >= kMaxHeld || waitingBytes_ + size > kMaxHeldBytes) {
    ++overflowed_;
    return;
  }
  ++waiting_;
  waitingBytes_ += size;
  incoming_.push_back({writer, PBase::CTime::getCurrentMicroSecond(), std::move(sample)});
  changed_.notifyAll();
}

bool EventBusCore::isNew(const Pexal_PDBus_Event& event) {
  PeerId id{};
  std::copy_n(event.publisher, id.size(), id.begin());
  if (publishers_.size() >= kMaxPublishers && publishers_.count(id) == 0) {
    publishers_.erase(std::ranges::min_element(
        publishers_, {}, [](const auto& entry) { return entry.second.lastUse; }));
  }
  Publisher& publisher = publishers_[id];
  publisher.lastUse = ++publisherUse_;
  return (event.openMs > 0 ? publisher.open : publisher.plain).accept(event.number);
}

EventBusCore::Chores EventBusCore::awaitChores() {
  std::uint64_t deadlineUs = deadlineAfter(outboxStuck_ ? kStuckRetryMs : kIdleMs);
  for (const HeldEvent& held : held_) {
    deadlineUs = std::min(deadlineUs, held.sinceUs + EventBusPeers::kWaitUs);
  }
  Lock lock(mutex_);
  changed_.waitUntil(lock, deadlineUs, [this] {
    return stopping_ || matchesChanged_ || outboxFilled_ || malformed_ > 0 || !incoming_.empty();
  });
  Chores chores;
  chores.stopping = stopping_;
  chores.matchesChanged = std::exchange(matchesChanged_, false);
  chores.readerAdded = std::exchange(readerAdded_, false);
  outboxFilled_ = false;
  chores.malformed = std::exchange(malformed_, 0);
  chores.overflowed = std::exchange(overflowed_, 0);
  std::ranges::move(incoming_, std::back_inserter(held_));
  incoming_.clear();
  return chores;
}

void EventBusCore::housekeep() {
  for (;;) {
    const Chores chores = awaitChores();
    if (chores.readerAdded) outbox_.repeatOpen();
    outboxStuck_ = outbox_.pump();
    if (chores.stopping) break;
    writerPeers_.report();
    readerPeers_.report();
    if (peers_) {
      if (chores.matchesChanged) peers_->matchesChanged();
      handOnHeld();
    }
    complain(chores.malformed, "dropped events whose topic or payload is too large");
    complain(chores.overflowed, "dropped events that nobody takes");
  }
  close();
}

void EventBusCore::handOnHeld() {
  const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
  std::unordered_map<dds_instance_handle_t, Blocked> blocked;  // later events wait behind
  std::deque<HeldEvent> kept;
  std::size_t keptBytes = 0;
  std::size_t gone = 0;
  std::size_t bytes = 0;
  std::uint32_t crowdedOut = 0;
  for (HeldEvent& held : held_) {
    const std::size_t size = held.event.value.payload._length;
    if (!blocked.contains(held.writer) && peers_->mayHandOn(held.writer, held.sinceUs, now)) {
      dispatcher_->enqueue(std::move(held.event));
    } else if (Blocked& before = blocked[held.writer];
               (kept.size() < kMaxHeld / 2 && keptBytes + size <= kMaxHeldBytes / 2) ||
               (before.count < kMaxBlocked && before.bytes + size <= kMaxBlockedBytes)) {
      ++before.count;
      before.bytes += size;
      keptBytes += size;
      kept.push_back(std::move(held));
      continue;
    } else {
      ++crowdedOut;
    }
    ++gone;
    bytes += size;
  }
  held_ = std::move(kept);
  {
    const Lock lock(mutex_);
    waiting_ -= gone;
    waitingBytes_ -= bytes;
  }
  complain(crowdedOut, "dropped events of a client that can't be answered");
}

void EventBusCore::complain(std::uint32_t count, const char* what) {
  if (count > 0 && log_.permit()) {
    ILogger::instance()->log(3, kLogTag, "event bus %s: %s (%u)\n", settings_.server.c_str(), what,
                             count);
  }
}

void EventBusCore::beginStop() {
  gate_.close();
  const Lock lock(mutex_);
  stopping_ = true;
  changed_.notifyAll();
}

void EventBusCore::close() {
  gate_.close();
  gate_.awaitIdle(deadlineAfter(kLeaveMs));
  reader_.reset();
  writer_.reset();  // lingers, at most a second, until the last events are acknowledged
  readerTopic_.reset();
  writerTopic_.reset();
}

}  // namespace Pexal::PDBus
