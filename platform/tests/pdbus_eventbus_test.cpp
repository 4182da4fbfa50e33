#include <gmock/gmock.h>

#include <atomic>
#include <cstring>
#include <future>
#include <mutex>
#include <vector>

#include "PDBus.h"
#include "pbase/CSemaphore.h"
#include "pdbus/IEventBus.h"
#include "pdbus_rpc_support.h"

using namespace pdbus_test;
using namespace Pexal::PDBus;
using Pexal::PBase::CSemaphore;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

namespace {

constexpr std::uint32_t kRobot = 1;
constexpr std::uint32_t kApp = 2;
constexpr std::uint32_t kPeer = 3;
constexpr std::uint32_t kLongMs = 10'000;

const std::string kClientBus =
    R"({"server": "robotServer", "domain": "host", "topics": 4, "workers": {"count": 2, "task": 4}})";
const std::string kBoardBus =
    R"({"server": "robotServer", "domain": "host", "topics": 32, "withService": true,
        "withClient": false, "workers": {"count": 2, "task": 16}})";
const std::string kServerBus =
    R"({"server": "robotServer", "domain": "host", "topics": 16, "role": "server",
        "workers": {"count": 2, "task": 1024}})";

/// A context with one bus.
class BusNode : public Node {
 public:
  BusNode(std::uint32_t domain, const std::string& document, int lossPerMille = 0)
      : Node(domain, lossPerMille, document), bus(factory->eventBus("robotServer")) {
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
    return eventually([&] { return std::ranges::count(heard(), event) > 0; });
  }

 private:
  Pexal::PBase::CMutex mutex_;  // guards heard_
  std::vector<std::string> heard_;
};

std::shared_ptr<Listener> listen(const BusNode& node, const std::string& topic) {
  auto listener = std::make_shared<Listener>();
  EXPECT_TRUE(node.bus->subscribe(topic, listener->handler()));
  return listener;
}

/// Waits until events of `from` reach `to`.
bool connected(const BusNode& from, const BusNode& to) {
  const auto listener = listen(to, "connected?");
  const bool heard = from.bus->publish("connected?", 1, kLongMs) && listener->hears("connected?=1");
  return to.bus->unsubscribe("connected?", listener->handler()) && heard;
}

/// Holds the worker that calls it until it is told to go on.
class Blocker : public Listener {
 public:
  void onEvent(const std::string& topic, const Json::Value& payload) override {
    Listener::onEvent(topic, payload);
    entered.post();
    EXPECT_TRUE(leave.wait(kLongMs));
  }
  CSemaphore entered{0};
  CSemaphore leave{0};
};

TEST(EventBus, EventsOfATopicArriveOnceAndInOrder) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode app(kApp, kClientBus);
  ASSERT_TRUE(connected(robot, app));
  ASSERT_TRUE(connected(app, robot));

  const auto atRobot = listen(robot, "up");
  EXPECT_TRUE(robot.bus->subscribe("up", atRobot->handler())) << "the same subscription again";
  std::vector<std::string> expected;
  for (int i = 0; i < 200; ++i) {
    expected.push_back("up=" + std::to_string(i));
    EXPECT_TRUE(app.bus->publish("up", i));
    EXPECT_TRUE(app.bus->publish("unheard", i));
  }
  EXPECT_TRUE(atRobot->hears("up=199"));
  EXPECT_EQ(atRobot->heard(), expected);

  const auto first = listen(app, "down");
  const auto second = listen(app, "down");
  EXPECT_TRUE(robot.bus->publish("down", json(R"({"a": [1, null]})")));
  EXPECT_TRUE(first->hears(R"(down={"a":[1,null]})"));
  EXPECT_TRUE(second->hears(R"(down={"a":[1,null]})"));

  EXPECT_TRUE(app.bus->unsubscribe("down", first->handler()));
  EXPECT_FALSE(app.bus->unsubscribe("down", first->handler()));
  EXPECT_FALSE(app.bus->unsubscribe("nothing", first->handler()));
  EXPECT_TRUE(robot.bus->publish("down", Json::Value()));
  EXPECT_TRUE(second->hears("down=null"));
  EXPECT_EQ(first->heard().size(), 1U);
}

TEST(EventBus, LossOnBothSidesCostsNoEvent) {
  const BusNode robot(kRobot, kServerBus, 50);
  const BusNode app(kApp, kClientBus, 50);
  ASSERT_TRUE(connected(app, robot));
  const auto atRobot = listen(robot, "up");
  std::vector<std::string> expected;
  for (int i = 0; i < 300; ++i) {
    expected.push_back("up=" + std::to_string(i));
    EXPECT_TRUE(app.bus->publish("up", i));
  }
  EXPECT_TRUE(atRobot->hears("up=299"));
  EXPECT_EQ(atRobot->heard(), expected);
}

TEST(EventBus, OnTheBoardAClientHearsButDoesNotSpeak) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode board(kRobot, kBoardBus);  // in the same domain object: delivered without a network
  const auto listener = listen(board, "down");
  ASSERT_TRUE(robot.bus->publish("down", 1, kLongMs));
  EXPECT_TRUE(listener->hears("down=1"));
  EXPECT_FALSE(board.bus->publish("up", 1));
}

TEST(EventBus, BoundsAreRefused) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode app(kApp, kClientBus);
  ASSERT_TRUE(connected(app, robot));
  EXPECT_FALSE(app.bus->publish("", 1));
  EXPECT_FALSE(app.bus->publish(std::string(256, 't'), 1));
  EXPECT_FALSE(app.bus->publish("large", std::string(256U << 10, 'x')));
  EXPECT_TRUE(app.bus->publish("large", std::string((256U << 10) - 2, 'x')));

  const auto listener = std::make_shared<Listener>();
  for (const char* const topic : {"1", "2", "3", "4", "4"}) {
    EXPECT_TRUE(app.bus->subscribe(topic, listener->handler())) << topic;
  }
  EXPECT_FALSE(app.bus->subscribe("5", listener->handler()));
  EXPECT_TRUE(app.bus->unsubscribe("1", listener->handler()));
  EXPECT_TRUE(app.bus->subscribe("5", listener->handler()));
}

TEST(EventBus, ABlockedHandlerDelaysItsOwnTopicOnlyWhoseOldestEventsGo) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode app(kApp, kClientBus);  // queues 4 events per topic
  ASSERT_TRUE(connected(robot, app));
  const dds_test::LogWatch log;
  const auto blocker = std::make_shared<Blocker>();
  ASSERT_TRUE(app.bus->subscribe("slow", blocker->handler()));
  const auto other = listen(app, "quick");

  ASSERT_TRUE(robot.bus->publish("slow", 0));
  ASSERT_TRUE(blocker->entered.wait(kLongMs));
  for (int i = 1; i < 10; ++i) EXPECT_TRUE(robot.bus->publish("slow", i));
  EXPECT_TRUE(robot.bus->publish("quick", 1));
  EXPECT_TRUE(other->hears("quick=1"));

  for (int i = 0; i < 5; ++i) blocker->leave.post();
  EXPECT_TRUE(blocker->hears("slow=9"));
  EXPECT_THAT(blocker->heard(), ElementsAre("slow=0", "slow=6", "slow=7", "slow=8", "slow=9"));
  EXPECT_TRUE(eventually([&] { return !log.with("oldest").empty(); }));
}

/// Unsubscribes itself, or lets its owner go, from inside the handler.
class OneShot : public Listener {
 public:
  void onEvent(const std::string& topic, const Json::Value& payload) override {
    Listener::onEvent(topic, payload);
    EXPECT_TRUE(bus->unsubscribe(topic, handler()));
    if (payload == "throw") throw std::runtime_error("thrown by a handler");
  }
  std::shared_ptr<IEventBus> bus;
};

TEST(EventBus, AHandlerMayUnsubscribeItselfThrowOrLoseItsOwner) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode app(kApp, kClientBus);
  ASSERT_TRUE(connected(robot, app));
  const auto once = std::make_shared<OneShot>();
  once->bus = app.bus;
  ASSERT_TRUE(app.bus->subscribe("down", once->handler()));
  auto dying = listen(app, "down");
  const auto last = listen(app, "down");

  EXPECT_TRUE(robot.bus->publish("down", "throw"));
  EXPECT_TRUE(last->hears("down=\"throw\""));
  dying.reset();
  EXPECT_TRUE(robot.bus->publish("down", 2));
  EXPECT_TRUE(last->hears("down=2"));
  EXPECT_THAT(once->heard(), ElementsAre("down=\"throw\""));
  once->bus.reset();
}

TEST(EventBus, ALateComerGetsOpenEventsOnceAndOthersNot) {
  const BusNode app(kApp, kClientBus);
  EXPECT_TRUE(app.bus->publish("up", "plain"));
  EXPECT_TRUE(app.bus->publish("up", "short", 1));
  EXPECT_TRUE(app.bus->publish("up", "open", kLongMs));
  EXPECT_TRUE(app.bus->publish("up", "open", 1)) << "doesn't shorten the one before";
  const BusNode first(kRobot, kServerBus, 200);  // a fifth of the acknowledgements is lost
  const auto atFirst = listen(first, "up");
  ASSERT_TRUE(atFirst->hears("up=\"open\""));
  EXPECT_TRUE(app.bus->publish("up", "plain 2"));

  const BusNode second(4, kServerBus);
  const auto atSecond = listen(second, "up");
  ASSERT_TRUE(atSecond->hears("up=\"open\""));
  EXPECT_TRUE(app.bus->publish("up", "last"));
  EXPECT_TRUE(atFirst->hears("up=\"last\""));
  EXPECT_THAT(listen(second, "up")->heard(), IsEmpty()) << "nothing is left for another subscriber";
  EXPECT_TRUE(atSecond->hears("up=\"last\""));
  EXPECT_THAT(atFirst->heard(), ElementsAre("up=\"open\"", "up=\"plain 2\"", "up=\"last\""));
  EXPECT_THAT(atSecond->heard(), ElementsAre("up=\"open\"", "up=\"last\""));
}

/// A robot: answers a request with its name.
class Responder : public Listener {
 public:
  Responder(const BusNode& node, std::string name) : name_(std::move(name)), bus_(node.bus) {}
  void onEvent(const std::string&, const Json::Value&) override {
    EXPECT_TRUE(bus_->publish("response", name_));
  }

 private:
  const std::string name_;
  const std::shared_ptr<IEventBus> bus_;
};

TEST(EventBus, RobotsThatStartInsideTheWindowAnswerAndTheAnswersArrive) {
  for (int round = 0; round < 4; ++round) {
    const BusNode app(kApp, kClientBus);
    const auto listener = listen(app, "response");
    ASSERT_TRUE(app.bus->publish("request", Json::Value(), kLongMs));
    // The first two share a process, the third loses a tenth of what it sends.
    const BusNode one(kRobot, kServerBus);
    const BusNode two(kRobot, kServerBus);
    const BusNode three(4, kServerBus, 100);
    std::vector<std::shared_ptr<Responder>> robots;
    for (const auto& [node, name] :
         {std::make_pair(&one, "1"), std::make_pair(&two, "2"), std::make_pair(&three, "3")}) {
      robots.push_back(std::make_shared<Responder>(*node, name));
      ASSERT_TRUE(node->bus->subscribe("request", robots.back()->handler()));
    }
    for (const char* const name : {"1", "2", "3"}) {
      EXPECT_TRUE(listener->hears("response=\"" + std::string(name) + "\"")) << round;
    }
    EXPECT_EQ(listener->heard().size(), 3U);
  }
}

/// Publishes events by hand.
class RawPublisher {
 public:
  RawPublisher()
      : topic_(participant_.topic(Pexal_PDBus_Event_desc, "robotServer/event/server")),
        writer_(participant_.writer(topic_)) {}
  bool matched() {
    return eventually([this] { return hasReader(writer_); });
  }
  void write(std::uint64_t number, const std::string& payload, const std::string& topic = "up",
             std::uint32_t openMs = 0) {
    Pexal_PDBus_Event event{};
    event.publisher[0] = 7;
    event.number = number;
    event.openMs = openMs;
    event.topic = const_cast<char*>(topic.c_str());
    event.payload = octets(payload);
    EXPECT_EQ(dds_write(writer_, &event), DDS_RETCODE_OK);
  }

 private:
  RawParticipant participant_{kPeer};
  RawEntity topic_;
  RawEntity writer_;
};

TEST(EventBus, AClientThatCannotListenIsHeardAfterASecondAndDelaysNobody) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode app(kApp, kClientBus);
  const auto listener = listen(robot, "up");
  ASSERT_TRUE(connected(app, robot));
  RawPublisher deaf;
  ASSERT_TRUE(deaf.matched());
  deaf.write(1, "1");
  deaf.write(2, "2");
  EXPECT_TRUE(app.bus->publish("up", 3));
  EXPECT_TRUE(listener->hears("up=2"));
  EXPECT_THAT(listener->heard(), ElementsAre("up=3", "up=1", "up=2"));
}

TEST(EventBus, GarbageIsDropped) {
  const BusNode robot(kRobot, kServerBus);
  const auto listener = listen(robot, "up");
  const dds_test::LogWatch log;
  RawPublisher peer;
  ASSERT_TRUE(peer.matched());
  std::uint64_t number = 0;
  for (const std::string& bad : {std::string("no json"), std::string(), nested(1000), kTooLarge}) {
    peer.write(++number, bad);
  }
  peer.write(++number, "1", std::string(300, 't'));
  peer.write(++number, "1", "");
  peer.write(0, "2");
  peer.write(1, "3", "up", 1);  // open events are numbered apart
  peer.write(1, "4");
  peer.write(++number, "5");
  peer.write(number, "6");
  peer.write(++number, "7");
  EXPECT_TRUE(listener->hears("up=7"));
  EXPECT_THAT(listener->heard(), ElementsAre("up=3", "up=5", "up=7"));
  EXPECT_FALSE(log.with("no JSON").empty());
  EXPECT_FALSE(log.with("too large").empty());
}

TEST(EventBus, AStopIsBoundedAndFinal) {
  const BusNode robot(kRobot, kServerBus);
  BusNode app(kApp, kClientBus);
  ASSERT_TRUE(connected(robot, app));
  const auto blocker = std::make_shared<Blocker>();
  ASSERT_TRUE(app.bus->subscribe("slow", blocker->handler()));
  ASSERT_TRUE(robot.bus->publish("slow", 1));
  ASSERT_TRUE(robot.bus->publish("slow", 2));
  ASSERT_TRUE(blocker->entered.wait(kLongMs));

  const std::uint64_t start = CTime::getCurrentMilliSecond();
  app.factory->shutdown();
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 4000U);
  EXPECT_FALSE(app.bus->publish("up", 1));
  EXPECT_FALSE(app.bus->subscribe("other", blocker->handler()));
  app.bus.reset();  // with the worker still inside
  blocker->leave.post();
  blocker->leave.post();
  EXPECT_TRUE(eventually([&] { return blocker.use_count() == 1; })) << "the worker has let go";
  EXPECT_THAT(blocker->heard(), ElementsAre("slow=1"));
}

}  // namespace
