#pragma once

#include <json/value.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "pbase/CMutex.h"

namespace orvane::robot {

/// Events on their way out, in order. Bounded: when a dead network holds them up, the oldest go.
///
/// Threading contract: any thread puts, one takes. The mutex guards the queue and the stop flag; it
/// is innermost and nothing is called while it is held.
class EventOutbox {
 public:
  struct Event {
    std::string topic;  ///< without the server's name: ".control.status" or ".host.event"
    Json::Value payload;
  };

  explicit EventOutbox(std::string deviceId) : deviceId_(std::move(deviceId)) {}

  /// Who controls the robot now.
  void controlStatus(bool controlled, const std::string& controller);
  /// Something else that happened.
  void hostEvent(Json::Value detail);

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

}  // namespace orvane::robot
