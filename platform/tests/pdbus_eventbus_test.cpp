#include <stdexcept>

#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pdbus_bus_support.h"

using namespace platform_test;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::CTime;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(EventBus, EveryHandlerHearsEachEventOnceUntilItUnsubscribes) {
  const BusPair pair;
  const auto first = listen(pair.app, "down");
  const auto second = listen(pair.app, "down");
  EXPECT_TRUE(pair.app.bus->subscribe("down", first->handler())) << "the same subscription again";
  EXPECT_TRUE(pair.robot.bus->publish("unheard", 1));
  EXPECT_TRUE(pair.robot.bus->publish("down", json(R"({"a": [1, null]})")));
  EXPECT_TRUE(first->hears(R"(down={"a":[1,null]})"));
  EXPECT_TRUE(second->hears(R"(down={"a":[1,null]})"));

  EXPECT_TRUE(pair.app.bus->unsubscribe("down", first->handler()));
  EXPECT_FALSE(pair.app.bus->unsubscribe("down", first->handler()));
  EXPECT_FALSE(pair.app.bus->unsubscribe("nothing", first->handler()));
  EXPECT_TRUE(pair.robot.bus->publish("down", Json::Value()));
  EXPECT_TRUE(second->hears("down=null"));
  EXPECT_EQ(first->heard().size(), 1U);
}

TEST(EventBus, OnTheBoardAClientHearsButDoesNotSpeak) {
  const BusNode robot(kRobot, kServerBus);
  const BusNode board(kRobot, kBoardBus);  // in the same domain object: delivered without a network
  const auto listener = listen(board, "down");
  ASSERT_TRUE(robot.bus->publish("down", 1, kDeadlineMs));
  EXPECT_TRUE(listener->hears("down=1"));
  EXPECT_FALSE(board.bus->publish("up", 1));
}

TEST(EventBus, BoundsAreRefused) {
  const BusPair pair;
  const auto& bus = pair.app.bus;
  EXPECT_FALSE(bus->publish("", 1));
  EXPECT_FALSE(bus->publish(std::string(256, 't'), 1));
  EXPECT_FALSE(bus->publish("large", std::string(256U << 10, 'x')));
  EXPECT_TRUE(bus->publish("large", std::string((256U << 10) - 2, 'x')));

  const auto listener = std::make_shared<Listener>();
  for (const char* const topic : {"1", "2", "3", "4", "4"}) {
    EXPECT_TRUE(bus->subscribe(topic, listener->handler())) << topic;
  }
  EXPECT_FALSE(bus->subscribe("5", listener->handler()));
  EXPECT_TRUE(bus->unsubscribe("1", listener->handler()));
  EXPECT_TRUE(bus->subscribe("5", listener->handler()));
}

/// Holds the worker that calls it until it is told to go on.
class Blocker : public Listener {
 public:
  void onEvent(const std::string& topic, const Json::Value& payload) override {
    Listener::onEvent(topic, payload);
    entered.post();
    EXPECT_TRUE(leave.wait(kDeadlineMs));
  }
  CSemaphore entered{0};
  CSemaphore leave{0};
};

TEST(EventBus, ABlockedHandlerDelaysItsOwnTopicOnlyWhoseOldestEventsGo) {
  const BusPair pair;  // the application queues 4 events per topic
  const LogWatch log;
  const auto blocker = std::make_shared<Blocker>();
  ASSERT_TRUE(pair.app.bus->subscribe("slow", blocker->handler()));
  const auto other = listen(pair.app, "quick");
  ASSERT_TRUE(pair.robot.bus->publish("slow", 0));
  ASSERT_TRUE(blocker->entered.wait(kDeadlineMs));
  for (int i = 1; i < 10; ++i) EXPECT_TRUE(pair.robot.bus->publish("slow", i));
  EXPECT_TRUE(pair.robot.bus->publish("quick", 1));
  EXPECT_TRUE(other->hears("quick=1"));

  for (int i = 0; i < 5; ++i) blocker->leave.post();
  EXPECT_TRUE(blocker->hears("slow=9"));
  EXPECT_THAT(blocker->heard(), ElementsAre("slow=0", "slow=6", "slow=7", "slow=8", "slow=9"));
  EXPECT_TRUE(waitUntil([&] { return !log.with("oldest").empty(); }));
}

/// Unsubscribes itself from inside the handler, and throws.
class OneShot : public Listener {
 public:
  void onEvent(const std::string& topic, const Json::Value& payload) override {
    Listener::onEvent(topic, payload);
    EXPECT_TRUE(bus->unsubscribe(topic, handler()));
    throw std::runtime_error("thrown by a handler");
  }
  std::shared_ptr<IEventBus> bus;
};

TEST(EventBus, AHandlerMayUnsubscribeItselfThrowOrLoseItsOwner) {
  const BusPair pair;
  const auto once = std::make_shared<OneShot>();
  once->bus = pair.app.bus;
  ASSERT_TRUE(pair.app.bus->subscribe("down", once->handler()));
  auto dying = listen(pair.app, "down");
  const auto last = listen(pair.app, "down");
  EXPECT_TRUE(pair.robot.bus->publish("down", 1));
  EXPECT_TRUE(last->hears("down=1"));
  dying.reset();
  EXPECT_TRUE(pair.robot.bus->publish("down", 2));
  EXPECT_TRUE(last->hears("down=2"));
  EXPECT_THAT(once->heard(), ElementsAre("down=1"));
}

TEST(EventBus, ALateComerGetsOpenEventsOnceAndOthersNot) {
  const BusNode app(kApp, kClientBus);
  EXPECT_TRUE(app.bus->publish("up", "plain"));
  EXPECT_TRUE(app.bus->publish("up", "short", 1));
  EXPECT_TRUE(app.bus->publish("up", "open", kDeadlineMs));
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
    ASSERT_TRUE(app.bus->publish("request", Json::Value(), kDeadlineMs));
    // The first two share a process, the third loses a tenth of what it sends.
    const BusNode one(kRobot, kServerBus);
    const BusNode two(kRobot, kServerBus);
    const BusNode three(4, kServerBus, 100);
    std::vector<std::shared_ptr<Responder>> robots;
    for (const BusNode* const node : {&one, &two, &three}) {
      robots.push_back(std::make_shared<Responder>(*node, std::to_string(robots.size())));
      ASSERT_TRUE(node->bus->subscribe("request", robots.back()->handler()));
    }
    for (const char* const name : {"0", "1", "2"}) {
      EXPECT_TRUE(listener->hears("response=\"" + std::string(name) + "\"")) << round;
    }
    EXPECT_EQ(listener->heard().size(), 3U);
  }
}

TEST(EventBus, AClientThatCannotListenIsHeardAfterASecondAndDelaysNobody) {
  const BusPair pair;
  const auto listener = listen(pair.robot, "up");
  RawPublisher deaf;
  ASSERT_TRUE(deaf.matched());
  deaf.write(1, "1");
  deaf.write(2, "2");
  EXPECT_TRUE(pair.app.bus->publish("up", 3));
  EXPECT_TRUE(listener->hears("up=2"));
  EXPECT_THAT(listener->heard(), ElementsAre("up=3", "up=1", "up=2"));
}

TEST(EventBus, GarbageAndRepetitionsAreDropped) {
  const BusNode robot(kRobot, kServerBus);
  const auto listener = listen(robot, "up");
  const LogWatch log;
  RawPublisher peer;
  ASSERT_TRUE(peer.matched());
  peer.write(1, badJson().front());
  peer.write(2, kTooLarge);
  peer.write(1, "3", "up", 1);  // open events are numbered apart
  peer.write(1, "4");
  peer.write(3, "5");
  EXPECT_TRUE(listener->hears("up=5"));
  EXPECT_THAT(listener->heard(), ElementsAre("up=3", "up=5"));
  EXPECT_FALSE(log.with("no JSON").empty());
  EXPECT_FALSE(log.with("too large").empty());
}

TEST(EventBus, AStopIsBoundedAndFinal) {
  BusPair pair;
  const auto blocker = std::make_shared<Blocker>();
  ASSERT_TRUE(pair.app.bus->subscribe("slow", blocker->handler()));
  ASSERT_TRUE(pair.robot.bus->publish("slow", 1));
  ASSERT_TRUE(pair.robot.bus->publish("slow", 2));
  ASSERT_TRUE(blocker->entered.wait(kDeadlineMs));

  const std::uint64_t start = CTime::getCurrentMilliSecond();
  pair.app.factory->shutdown();
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 4000U);
  EXPECT_FALSE(pair.app.bus->publish("up", 1));
  EXPECT_FALSE(pair.app.bus->subscribe("other", blocker->handler()));
  pair.app.bus.reset();  // with the worker still inside
  blocker->leave.post();
  blocker->leave.post();
  EXPECT_TRUE(waitUntil([&] { return blocker.use_count() == 1; })) << "the worker has let go";
  EXPECT_THAT(blocker->heard(), ElementsAre("slow=1"));
}

}  // namespace
