#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EndpointLife.h"
#include "Endpoints.h"
#include "EventBusDispatcher.h"
#include "EventBusOutbox.h"
#include "EventBusPeers.h"
#include "EventBusWire.h"
#include "PeerMismatch.h"

namespace Pexal::PDBus {

/// The DDS side of one event bus: what it publishes, what it takes in, and the housekeeping thread.
///
/// Threading: publish from any thread. libddsc's receive threads run the listeners, which sort out
/// repeated events and queue the rest: on a client's bus straight to the dispatcher, on a server's
/// bus to the housekeeping thread, which hands an event on when the answer can reach its sender.
/// That thread also writes what the outbox holds back, and deletes the DDS entities when it ends.
///
/// mutex_, the dispatcher's and the outbox's are leaves: never held together, nor across a DDS call
/// or a log.
class EventBusCore {
 public:
  EventBusCore(EventBusSettings settings, std::shared_ptr<EventBusDispatcher> dispatcher);
  EventBusCore(const EventBusCore&) = delete;
  EventBusCore& operator=(const EventBusCore&) = delete;
  ~EventBusCore() { close(); }

  bool open(dds_entity_t participant);
  bool publish(const std::string& topic, const std::string& payload, std::uint32_t openMs);
  void housekeep();
  void beginStop();

 private:
  static constexpr std::size_t kMaxPublishers = 1024;
  static constexpr std::size_t kMaxHeld = 1024;
  static constexpr std::size_t kMaxHeldBytes = 16U << 20;
  // Of these, what one sender whose way back isn't there yet may still take up once half of all is
  // taken. Before that it may take what it likes: most often there is only one.
  static constexpr std::size_t kMaxBlocked = kMaxHeld / 4;
  static constexpr std::size_t kMaxBlockedBytes = kMaxHeldBytes / 4;
  static constexpr std::uint64_t kIdleMs = 60000;
  static constexpr std::uint64_t kStuckRetryMs = 20;
  static constexpr std::uint64_t kLeaveMs = 2000;

  struct HeldEvent {
    dds_instance_handle_t writer;
    std::uint64_t sinceUs;
    EventSample event;
  };
  /// What waits of one writer.
  struct Blocked {
    std::size_t count = 0;
    std::size_t bytes = 0;
  };
  /// What has been seen of one publisher.
  struct Publisher {
    SequenceWindow plain;
    SequenceWindow open;
    std::uint64_t lastUse = 0;
  };
  /// What woke the housekeeping thread.
  struct Chores {
    bool stopping = false;
    bool matchesChanged = false;
    bool readerAdded = false;
    std::uint32_t malformed = 0;
    std::uint32_t overflowed = 0;
  };

  [[nodiscard]] bool writes() const {
    return settings_.serverRole ? settings_.receive : settings_.publish;
  }
  [[nodiscard]] bool reads() const {
    return settings_.serverRole ? settings_.publish : settings_.receive;
  }
  bool openWriter(dds_entity_t participant, const std::string& topic);
  bool openReader(dds_entity_t participant, const std::string& topic);
  void takeIn(EventSample& sample, dds_instance_handle_t writer);
  [[nodiscard]] bool isNew(const Pexal_PDBus_Event& event);
  [[nodiscard]] Chores awaitChores();
  void handOnHeld();
  void noteMatchesChanged();
  void complain(std::uint32_t count, const char* what);
  void close();

  static void onReadersChanged(dds_entity_t writer, dds_publication_matched_status_t status,
                               void* core);
  static void onWritersChanged(dds_entity_t reader, dds_subscription_matched_status_t status,
                               void* core);
  static void onEvent(dds_entity_t reader, void* core);

  const EventBusSettings settings_;
  const std::shared_ptr<EventBusDispatcher> dispatcher_;
  UseGate gate_;
  LogLimiter log_;
  PeerMismatch writerPeers_;
  PeerMismatch readerPeers_;
  Entity writerTopic_;
  Entity readerTopic_;
  Entity writer_;
  Entity reader_;
  EventBusOutbox outbox_;
  // Housekeeping thread only:
  bool outboxStuck_ = false;
  std::optional<EventBusPeers> peers_;
  std::deque<HeldEvent> held_;

  PBase::CMutex mutex_;  // guards what follows
  PBase::CCondition changed_;
  bool stopping_ = false;
  bool matchesChanged_ = false;
  bool readerAdded_ = false;
  bool outboxFilled_ = false;
  std::uint32_t malformed_ = 0;
  std::uint32_t overflowed_ = 0;
  std::deque<HeldEvent> incoming_;
  std::size_t waiting_ = 0;       ///< events in incoming_ and held_
  std::size_t waitingBytes_ = 0;  ///< their payloads
  std::map<PeerId, Publisher> publishers_;
  std::uint64_t publisherUse_ = 0;
};

}  // namespace Pexal::PDBus
