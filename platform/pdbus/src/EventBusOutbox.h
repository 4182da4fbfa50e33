#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "EndpointEntity.h"
#include "EventBusWire.h"
#include "pbase/CMutex.h"

namespace Pexal::PDBus {

/// What one bus publishes: numbers the events, keeps the open ones for late-comers, and holds back
/// what libddsc can't take yet because a reader hasn't acknowledged enough.
///
/// Threading: publish from any thread; repeatOpen and pump from the housekeeping thread. mutex_ is
/// a leaf, not held while writing nor while `wake` is called.
class EventBusOutbox {
 public:
  /// How long one attempt to write blocks at most.
  static constexpr std::int64_t kWriteMs = 20;

  /// `wake` has the housekeeping thread pump.
  explicit EventBusOutbox(std::function<void()> wake);

  /// Before anything else; 0: nothing can be published.
  void use(dds_entity_t writer) { writer_ = writer; }
  /// True when it is written, or held back for pump.
  bool publish(const std::string& topic, const std::string& payload, std::uint32_t openMs);
  /// A reader was matched: has the events that are still open written again.
  void repeatOpen();
  /// Writes what is held back. True: something is left, try again soon.
  bool pump();

 private:
  static constexpr std::size_t kMaxOpen = 64;
  static constexpr std::size_t kMaxBacklog = 512;
  static constexpr std::size_t kMaxBacklogBytes = 4U << 20;

  struct Event {
    std::uint64_t number;
    std::string topic;
    std::string payload;
    std::uint64_t openUntilUs;  ///< 0: a plain one
  };
  using EventPtr = std::shared_ptr<const Event>;

  dds_return_t write(const Event& event) const;
  EventPtr number(const std::string& topic, const std::string& payload, std::uint32_t openMs);
  [[nodiscard]] bool holdBack(const EventPtr& event);

  const PeerId id_;
  const std::function<void()> wake_;
  dds_entity_t writer_ = 0;
  LogLimiter log_;

  PBase::CMutex mutex_;  // guards what follows
  std::uint64_t lastPlain_ = 0;
  std::uint64_t lastOpen_ = 0;
  std::deque<EventPtr> open_;
  std::deque<EventPtr> backlog_;  ///< publish appends, pump removes
  std::size_t backlogBytes_ = 0;
};

}  // namespace Pexal::PDBus
