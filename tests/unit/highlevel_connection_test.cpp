// Connecting and disconnecting, events and callbacks, and what comes of both on the SDK's own
// threads.

#include <atomic>
#include <stdexcept>

#include "highlevel/MotionHighLevelClientImpl.h"
#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using orvane::RobotSdk::MotionHighLevelClientImpl;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// More simulated time than passes while a thread ends by real time.
constexpr std::uint32_t kAmple = 1'000'000'000;

/// Simulated time that no cancellation cuts short.
void pass(std::uint32_t ms) {
  Pexal::PBase::CSemaphore nobodyPosts(0);
  EXPECT_FALSE(nobodyPosts.wait(ms));
}

class Connection : public ClientTest {
 protected:
  std::vector<std::string> subscribedTopics() {
    std::vector<std::string> topics;
    for (const auto& subscription : bus.subscriptions()) topics.push_back(subscription.topic);
    return topics;
  }
  /// Has every answer of a method take that long.
  void slow(const std::string& method, std::uint32_t ms) {
    robot.on(method, [this, method, ms](const Request&) {
      Reply reply = method == "takeMotionControl" ? robot.grant() : accepted();
      reply.takesMs = ms;
      return reply;
    });
  }
  /// A client whose callbacks hold a token, so that its end can be seen.
  std::weak_ptr<int> watch() {
    auto token = std::make_shared<int>(0);
    client->setSensorObservedCallback([token](const auto&) {});
    return token;
  }
  void hostEvent(const Json::Value& payload) { bus.inject(kServer, kEventTopic, payload); }
};

TEST_F(Connection, LeaseHintBelowOneAsSignedValueIsAMinute) {
  for (const auto& [hint, lease] : {std::pair(0U, 60000U),
                                    {2147483648U, 60000U},
                                    {4294967295U, 60000U},
                                    {1U, 1U},
                                    {2147483647U, 2147483647U}}) {
    bus.forgetRequests();
    ASSERT_TRUE(client->connect(hint));
    ASSERT_TRUE(client->connect(hint + 5)) << "connected already: changes nothing";
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(3000);
    EXPECT_EQ(bus.requests("takeMotionControl").at(0).document["params"]["leaseTimeout"], lease);
    EXPECT_EQ(
        log.client(1, "high level connected").back(),
        "high level connected: clientId=unitTest leaseHint=" + std::to_string(lease) + "ms\n");
    ASSERT_TRUE(client->disconnect());
  }
}

TEST_F(Connection, FailsWithoutAnEndpoint) {
  const auto failsWithErrorOne = [this] {
    EXPECT_FALSE(client->connect(1000));
    EXPECT_EQ(client->getLastError(), 1U);
    EXPECT_EQ(client->getState(), 0U);
    EXPECT_THAT(subscribedTopics(), IsEmpty());
    EXPECT_EQ(log.client(4).back(),
              "high level connect failed: robotServer rpc client/event unavailable\n");
  };
  bus.setRpcAvailable(false);
  failsWithErrorOne();
  bus.setRpcAvailable(true);
  bus.setEventBusAvailable(false);
  failsWithErrorOne();
  bus.setEventBusAvailable(true);
  connect();
  EXPECT_THAT(log.client(1, "worker started"), SizeIs(1));
}

TEST_F(Connection, DisconnectGivesBackStopsAndUnsubscribes) {
  hold();
  EXPECT_THAT(subscribedTopics(), UnorderedElementsAre(kEventTopic, kStatusTopic));
  ASSERT_TRUE(client->disconnect());
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-1"));
  EXPECT_THAT(subscribedTopics(), IsEmpty());
  for (const auto& reader : bus.readers()) EXPECT_TRUE(reader.removed) << reader.topic;
  EXPECT_THAT(notifications.take(), IsEmpty());
  ASSERT_TRUE(client->disconnect());
  EXPECT_THAT(log.client(1), ElementsAre(testing::_, testing::_, testing::_, testing::_,
                                         "motion high level worker stopped...\n",
                                         "motion high level client disconnected\n"));
}

TEST_F(Connection, CallbacksAreSetBeforeConnectOnly) {
  const auto setAll = [this](std::atomic<int>& calls) {
    client->setConnectCallback([&calls](auto, auto) { ++calls; });
    client->setEventCallback([&calls](const auto&, const auto&) { ++calls; });
    client->setMotionObservedCallback([&calls](const auto&) { ++calls; });
    client->setSensorObservedCallback([&calls](const auto&) { ++calls; });
  };
  std::atomic<int> kept = 0;
  std::atomic<int> late = 0;
  setAll(kept);
  connect();
  setAll(late);
  EXPECT_THAT(log.client(3),
              ElementsAre(" set connect callback rejected: must call before connect\n",
                          " set event callback rejected: must call before connect\n",
                          " set motion observed callback rejected: must call before connect\n",
                          " set sensor observed callback rejected: must call before connect\n"));
  hostEvent({});
  EXPECT_EQ(kept, 1);
  ASSERT_TRUE(client->disconnect());
  setAll(late);
  connect();
  hostEvent({});
  EXPECT_EQ(kept, 1);
  EXPECT_EQ(late, 1);
}

TEST_F(Connection, EventsReachTheCallbackOnceWithTheirDetailAsText) {
  std::vector<std::pair<std::string, std::string>> events;
  client->setEventCallback([&](const std::string& topic, const std::string& detail) {
    events.emplace_back(topic, detail);
  });
  connect();
  hostEvent(object({{"detail", object({{"battery", 7}})}}));
  hostEvent(object({{"other", 1}}));
  hostEvent({});
  hostEvent("text");
  hostEvent(Json::Value(Json::arrayValue));
  EXPECT_THAT(events, ElementsAre(Pair(kEventTopic, "{\"battery\":7}"), Pair(kEventTopic, "null"),
                                  Pair(kEventTopic, "null"), Pair(kEventTopic, "null"),
                                  Pair(kEventTopic, "null")));
}

/// The harness's client is made for "dog-7", the second as the robot board makes its own.
TEST_F(Connection, EventsOfAnotherDeviceMeanNothing) {
  const Json::Value none;
  const std::pair<Json::Value, bool> cases[] = {
      {"dog-7", true}, {"cat", false}, {"dog-77", false}, {"dog", false},
      {"", true},      {none, true},   {7, true},         {Json::Value(Json::arrayValue), true}};
  int events = 0;
  client->setEventCallback([&](const auto&, const auto&) { ++events; });
  hold();
  for (const auto& [deviceNo, taken] : cases) {
    SCOPED_TRACE(deviceNo.toStyledString());
    events = 0;
    hostEvent(object({{"deviceNo", deviceNo}}));
    EXPECT_EQ(events, taken ? 1 : 0);
    const auto status = [&, &number = deviceNo](bool controlled, const char* controller) {
      bus.inject(
          kServer, kStatusTopic,
          object({{"deviceNo", number}, {"controlled", controlled}, {"controller", controller}}));
    };
    status(true, "other");
    EXPECT_EQ(client->getState(), taken ? 1U : 2U);
    status(true, "controller-1");
    EXPECT_EQ(client->getState(), 2U);
  }

  const auto board =
      std::make_shared<MotionHighLevelClientImpl>(MotionHighLevelClientImpl::Kind::kBoard, "");
  events = 0;
  board->setEventCallback([&](const auto&, const auto&) { ++events; });
  ASSERT_TRUE(board->connect(0));
  bus.inject("brainServer", "brainServer.host.event", object({{"deviceNo", "cat"}}));
  EXPECT_EQ(events, 1);
  board->disconnect();
}

TEST_F(Connection, ObservedRecordsReachTheCallbacksOnlyWhileConnected) {
  auto impl = std::make_shared<MotionHighLevelClientImpl>(MotionHighLevelClientImpl::Kind::kRemote,
                                                          "dog-7");
  int motor = 0;
  int level = 0;
  impl->setMotionObservedCallback([&](const auto& record) { motor += record.motorNum; });
  impl->setSensorObservedCallback([&](const auto& record) { level += record.gps.level; });
  orvane::RobotSdk::ObservedMotionRecord motion{};
  motion.motorNum = 12;
  orvane::RobotSdk::ObservedSensorRecord sensor{};
  sensor.gps.level = 5;
  const auto deliver = [&] {
    impl->deliverMotionObserved(motion);
    impl->deliverSensorObserved(sensor);
  };
  deliver();
  EXPECT_TRUE(impl->connect(0));
  deliver();
  impl->disconnect();
  deliver();
  EXPECT_EQ(motor, 12);
  EXPECT_EQ(level, 5);
}

TEST_F(Connection, CallbackThatThrowsHarmsNobody) {
  client->setConnectCallback([this](std::uint32_t state, std::uint32_t code) {
    notifications.add(state, code);
    throw std::runtime_error("application error");
  });
  client->setEventCallback([](const auto&, const auto&) { throw 5; });
  hold();
  hostEvent({});
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(0);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 0)));
  EXPECT_TRUE(client->disconnect());
}

TEST_F(Connection, NoEventCallbackRunsOnceDisconnectHasReturned) {
  std::atomic<bool> begun = false;
  std::atomic<bool> ended = false;
  client->setEventCallback([&](const auto&, const auto&) {
    begun = true;
    pass(100);
    ended = true;
  });
  connect();
  bus.injectFromThread(kServer, kEventTopic, {});
  clock.advance(1);
  ASSERT_TRUE(begun && !ended);
  ASSERT_TRUE(client->disconnect());
  EXPECT_TRUE(ended);
}

TEST_F(Connection, DisconnectDoesNotWaitForeverForACallback) {
  std::atomic<bool> ended = false;
  client->setEventCallback([&](const auto&, const auto&) {
    pass(kAmple);
    ended = true;
  });
  connect();
  bus.injectFromThread(kServer, kEventTopic, {});
  clock.advance(1);
  ASSERT_TRUE(client->disconnect());
  EXPECT_FALSE(ended);
  clock.advance(kAmple);
  EXPECT_TRUE(ended);
}

// --- from inside callbacks ---

TEST_F(Connection, DisconnectInsideTheConnectCallbackReturnsAtOnce) {
  std::uint32_t stateInside = 99;
  client->setConnectCallback([&](std::uint32_t, std::uint32_t) {
    const auto begin = now();
    EXPECT_TRUE(client->disconnect());
    EXPECT_EQ(now(), begin);
    stateInside = client->getState();
  });
  connect();
  ASSERT_TRUE(client->takeMotionControl(0));
  ASSERT_TRUE(until([this] { return log.client(1, "worker stopped").size() == 1; }));
  EXPECT_EQ(stateInside, 0U);
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-1"));
  EXPECT_THAT(subscribedTopics(), IsEmpty());
}

/// On the worker itself, and on the event bus's thread while the worker waits or is in a request.
TEST_F(Connection, ReconnectInsideACallbackStartsAfreshAndGivesTheOldControlBack) {
  enum class Where { kWorker, kBus, kBusDuringTake };
  for (const Where where : {Where::kWorker, Where::kBus, Where::kBusDuringTake}) {
    SCOPED_TRACE(static_cast<int>(where));
    bus.forgetRequests();
    client = orvane::RobotSdk::makeRemoteHighLevelClient("dog-7");
    bool again = true;
    const auto reconnect = [&] {
      if (!std::exchange(again, false)) return;
      const auto begin = now();
      EXPECT_TRUE(client->disconnect());
      EXPECT_TRUE(client->connect(0));
      EXPECT_TRUE(client->disconnect());
      EXPECT_TRUE(client->connect(0));
      EXPECT_TRUE(client->takeMotionControl(kAmple));
      EXPECT_EQ(now(), begin);
    };
    client->setConnectCallback([&](std::uint32_t state, std::uint32_t code) {
      notifications.add(state, code);
      if (where == Where::kWorker) reconnect();
    });
    int events = 0;
    client->setEventCallback([&](const auto&, const auto&) {
      ++events;
      if (where != Where::kWorker) reconnect();
    });
    slow("takeMotionControl", 1000);
    connect();
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(where == Where::kBusDuringTake ? 3500 : 4000);
    if (where != Where::kWorker) bus.injectFromThread(kServer, kEventTopic, {});
    const auto renewedAgain = [this] {
      return bus.requests("takeMotionControl").size() == 2 && client->getState() == 2 &&
             !bus.requests("renewMotionControl").empty();
    };
    ASSERT_TRUE(until(renewedAgain));
    EXPECT_THAT(speakers("takeMotionControl"), testing::Each(kOwnId));
    ASSERT_THAT(speakers("releaseMotionControl"), SizeIs(1)) << "the first grant, once";
    EXPECT_NE(speakers("renewMotionControl").back(), speakers("releaseMotionControl").back());
    EXPECT_THAT(notifications.take(),
                where == Where::kBusDuringTake
                    ? testing::Matcher<std::vector<Notifications::Pair>>(ElementsAre(Pair(2, 0)))
                    : ElementsAre(Pair(2, 0), Pair(2, 0)));
    events = 0;
    hostEvent({});
    EXPECT_EQ(events, 1);
    ASSERT_TRUE(client->disconnect());
  }
}

TEST_F(Connection, ReleaseOfTheLastReferenceInsideACallbackReturnsAtOnce) {
  for (const bool onWorker : {true, false}) {
    SCOPED_TRACE(onWorker);
    bus.forgetRequests();
    client = makeClient();
    const auto letGo = [this] {
      const auto begin = now();
      client.reset();
      EXPECT_EQ(now(), begin);
    };
    client->setConnectCallback([=](std::uint32_t, std::uint32_t) {
      if (onWorker) letGo();
    });
    client->setEventCallback([=](const auto&, const auto&) {
      if (!onWorker) letGo();
    });
    const std::weak_ptr<int> alive = watch();
    connect();
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(3000);
    if (!onWorker) bus.injectFromThread(kServer, kEventTopic, {});
    EXPECT_TRUE(until([&] { return alive.expired(); })) << "somebody still holds the client";
    EXPECT_EQ(client, nullptr);
    EXPECT_THAT(speakers("releaseMotionControl"), SizeIs(1));
    EXPECT_THAT(subscribedTopics(), IsEmpty());
  }
}

TEST_F(Connection, ConnectElsewhereWaitsForTheWorkerThatACallbackLeftBehind) {
  client->setEventCallback([this](const auto&, const auto&) { client->disconnect(); });
  connect();
  slow("setMotionMasterRole", 4000);
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(1000);
  hostEvent({});
  EXPECT_THAT(log.client(1, "worker stopped"), IsEmpty()) << "it is still in its request";
  ASSERT_TRUE(client->connect(0));
  EXPECT_THAT(log.client(1, "worker stopped"), SizeIs(1));
  EXPECT_TRUE(client->queryMotionState(nullptr, 100)) << "usable as soon as connect returns";
}

// --- requests that are answered too late ---

TEST_F(Connection, TakeAnsweredAfterDisconnectIsGivenBackAndNobodyHears) {
  slow("takeMotionControl", 2000);
  connect();
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(4000);
  ASSERT_TRUE(client->disconnect());
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-1"));
  EXPECT_THAT(notifications.take(), IsEmpty());
  EXPECT_THAT(log.client(1, "acquired"), IsEmpty());
}

TEST_F(Connection, ReleaseSentWhileDisconnectingStaysDisconnected) {
  hold();
  robot.on("releaseMotionControl", [](const Request&) {
    Reply reply = accepted();
    reply.takesMs = 100;
    return reply;
  });
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(50);
  ASSERT_TRUE(client->disconnect());
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_THAT(notifications.take(), IsEmpty());
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-1"));
}

TEST_F(Connection, DisconnectCutsThePauseBeforeTheTake) {
  connect();
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(1000);
  ASSERT_TRUE(client->disconnect());
  EXPECT_THAT(bus.requests("takeMotionControl"), IsEmpty());
}

/// The wish of one connection is none of the next one's, nor are its retries and deadlines.
TEST_F(Connection, ReconnectForgetsTheWish) {
  robot.on("setMotionMasterRole", refused());
  connect();
  ASSERT_TRUE(client->takeMotionControl(5000));
  clock.advance(100);
  ASSERT_TRUE(client->disconnect());
  bus.forgetRequests();
  connect();
  EXPECT_EQ(client->getLastError(), 0U);
  clock.advance(60'000);
  EXPECT_THAT(bus.requests(), IsEmpty());
  EXPECT_THAT(notifications.take(), IsEmpty());
}

}  // namespace
