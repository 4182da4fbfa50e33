#pragma once

#include <json/value.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pbase/CMutex.h"

namespace orvane::robot {

/// Who is told what happens to the robot, in the order in which it happens, under the robot mutex:
/// whoever listens doesn't wait for anything.
class EventListener {
 public:
  virtual ~EventListener() = default;

  /// Who controls the robot now.
  virtual void controlStatus(bool controlled, const std::string& controller) = 0;
  /// Something else that happened.
  virtual void hostEvent(Json::Value detail) = 0;
};

/// Events on their way out, in order. Bounded: when a dead network holds them up, the oldest go.
///
/// Threading contract: any thread puts, one takes. The mutex guards the queue and the stop flag; it
/// is innermost and nothing is called while it is held.
class EventOutbox final : public EventListener {
 public:
  struct Event {
    std::string topic;  ///< without the server's name: ".control.status" or ".host.event"
    Json::Value payload;
  };

  explicit EventOutbox(std::string deviceId) : deviceId_(std::move(deviceId)) {}

  void controlStatus(bool controlled, const std::string& controller) override;
  void hostEvent(Json::Value detail) override;

  /// The oldest event; waits for one until `deadlineUs` of the platform's clock. None: time is up,
  /// or the outbox is closed and empty.
  [[nodiscard]] std::optional<Event> take(std::uint64_t deadlineUs);
  /// What is put from now on is dropped; take() doesn't wait any more.
  void close();
  [[nodiscard]] bool finished();

 private:
  void put(Event event);

  const std::string deviceId_;
  Pexal::PBase::CMutex mutex_;  // guards what follows
  Pexal::PBase::CCondition changed_;
  std::deque<Event> events_;
  bool closed_ = false;
};

/// Several outboxes, each of which gets every event: a sender that is held up doesn't hold up the
/// others. Filled before anything happens.
class EventOutboxes final : public EventListener {
 public:
  explicit EventOutboxes(std::string deviceId) : deviceId_(std::move(deviceId)) {}

  [[nodiscard]] std::shared_ptr<EventOutbox> add();
  void controlStatus(bool controlled, const std::string& controller) override;
  void hostEvent(Json::Value detail) override;

 private:
  const std::string deviceId_;
  std::vector<std::shared_ptr<EventOutbox>> outboxes_;
};

}  // namespace orvane::robot
