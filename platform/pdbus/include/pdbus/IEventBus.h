#pragma once

#include <json/value.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "pbase/Export.h"

namespace Pexal::PDBus {

/// A handler of events: a function and an identity. Two handlers with the same identity are the
/// same handler for subscribe and unsubscribe.
class EventHandler {
 public:
  using Function = std::function<void(const std::string& topic, const Json::Value& payload)>;

  /// A member function bound weakly to its object: called only while the object lives (it is held
  /// for the length of the call). The identity is the object (also when it is gone: not just its
  /// address) and the member function.
  template <class T>
  static EventHandler bind(const std::weak_ptr<T>& owner,
                           void (T::*member)(const std::string&, const Json::Value&)) {
    EventHandler handler;
    handler.owner_ = owner;
    static_assert(sizeof(member) <= sizeof(handler.member_));
    std::memcpy(handler.member_.data(), &member, sizeof(member));
    handler.function_ = [owner, member](const std::string& topic, const Json::Value& payload) {
      if (const auto object = owner.lock()) ((*object).*member)(topic, payload);
    };
    return handler;
  }

  void operator()(const std::string& topic, const Json::Value& payload) const {
    function_(topic, payload);
  }
  friend bool operator==(const EventHandler& a, const EventHandler& b) {
    return !a.owner_.owner_before(b.owner_) && !b.owner_.owner_before(a.owner_) &&
           a.member_ == b.member_;
  }

 private:
  EventHandler() = default;
  std::weak_ptr<const void> owner_;
  std::array<unsigned char, 16> member_{};
  Function function_;
};

/// Named events with JSON payloads between one server and its clients.
///
/// Handlers run on the bus's workers ("workers"."count" of the DDS document), in order within a
/// topic, different topics side by side. Each topic queues at most "workers"."task" events behind a
/// running handler; then its oldest queued event is dropped and that is logged at most once a
/// second. What a handler throws is logged and swallowed, and so is a payload that is no JSON.
/// Every operation may be called from any thread, handlers included; none waits for a handler. A
/// topic is 1 to 255 bytes long, a payload at most 256 KiB of JSON text.
///
/// A server's bus hands an event on to its handlers when what they publish in answer can reach the
/// process that sent it, or after a second when that process doesn't listen. Until then it holds at
/// most 1024 events or 16 MiB of all senders; once half of that is taken, at most 256 events or
/// 4 MiB of each. What comes on top is dropped and logged, at most once a second.
class PEXAL_API IEventBus {
 public:
  virtual ~IEventBus();

  /// The bus of `server` in the started IDDSFactory::instance(). Null when the DDS layer isn't
  /// started or its document doesn't name the server under "eventBus".
  static std::shared_ptr<IEventBus> instance(const std::string& server);

  /// Publishes to the other side (client: to the servers; server: to all clients). With `openMs`
  /// above 0 the event also reaches peers that are first matched, or first subscribe to its topic,
  /// within that many milliseconds, each peer once; the same event published again takes the place
  /// of the one before. Others are not replayed to late-comers. While a peer that is matched
  /// doesn't acknowledge (it is stopped, or its network is), events are held back after the first
  /// few dozen, until DDS gives that peer up.
  ///
  /// False: bus stopped, publishing not enabled ("withClient" false on a client), topic or payload
  /// too large, too much held back, or refused by DDS. Blocks at most 100 ms.
  virtual bool publish(const std::string& topic, const Json::Value& payload,
                       std::uint32_t openMs = 0) = 0;
  /// False: bus stopped, or more than "topics" topics. The same handler on the same topic again is
  /// one subscription.
  virtual bool subscribe(const std::string& topic, const EventHandler& handler) = 0;
  /// The handler isn't called anew after this returns; one in flight goes on. False: not
  /// subscribed.
  virtual bool unsubscribe(const std::string& topic, const EventHandler& handler) = 0;
};

}  // namespace Pexal::PDBus
