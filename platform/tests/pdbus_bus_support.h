#pragma once

#include "pdbus/IEventBus.h"
#include "pdbus_wire.h"

namespace platform_test {

using namespace Pexal::PDBus;

inline const std::string kClientBus =
    R"({"server": "robotServer", "domain": "host", "topics": 4, "workers": {"count": 2, "task": 4}})";
inline const std::string kBoardBus =
    R"({"server": "robotServer", "domain": "host", "topics": 32, "withService": true,
        "withClient": false, "workers": {"count": 2, "task": 16}})";
inline const std::string kServerBus =
    R"({"server": "robotServer", "domain": "host", "topics": 16, "role": "server",
        "workers": {"count": 2, "task": 1024}})";

/// A context with one bus.
class BusNode : public Node {
 public:
  BusNode(std::uint32_t domain, const std::string& document, int lossPerMille = 0)
      : Node(domain, {lossPerMille}, document), bus(factory->eventBus("robotServer")) {
    EXPECT_NE(bus, nullptr);
  }
  std::shared_ptr<IEventBus> bus;
};

/// Remembers what it hears, as "topic=payload".
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  virtual ~Listener() = default;
  virtual void onEvent(const std::string& topic, const Json::Value& payload) {
    const std::lock_guard lock(mutex_);
    heard_.push_back(topic + "=" + Pexal::Utils::jsonToString(payload));
  }
  EventHandler handler() { return EventHandler::bind(weak_from_this(), &Listener::onEvent); }
  std::vector<std::string> heard() {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  bool hears(const std::string& event) {
    return waitUntil([&] { return std::ranges::count(heard(), event) > 0; });
  }

 private:
  Pexal::PBase::CMutex mutex_;  // guards heard_
  std::vector<std::string> heard_;
};

inline std::shared_ptr<Listener> listen(const BusNode& node, const std::string& topic) {
  auto listener = std::make_shared<Listener>();
  EXPECT_TRUE(node.bus->subscribe(topic, listener->handler()));
  return listener;
}

/// Waits until events of `from` reach `to`.
inline bool connected(const BusNode& from, const BusNode& to) {
  const auto listener = listen(to, "connected?");
  const bool heard =
      from.bus->publish("connected?", 1, kDeadlineMs) && listener->hears("connected?=1");
  return to.bus->unsubscribe("connected?", listener->handler()) && heard;
}

/// A robot and an application that hear each other.
struct BusPair {
  explicit BusPair(int lossPerMille = 0)
      : robot(kRobot, kServerBus, lossPerMille), app(kApp, kClientBus, lossPerMille) {
    EXPECT_TRUE(connected(robot, app) && connected(app, robot));
  }
  BusNode robot;
  BusNode app;
};

}  // namespace platform_test
