// Connecting and disconnecting, events and callbacks, and what comes of both on the SDK's own
// threads.

#include <atomic>
#include <stdexcept>

#include "highlevel/MotionHighLevelClientImpl.h"
#include "pbase/CSemaphore.h"
#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using orvane::RobotSdk::makeRemoteHighLevelClient;
using orvane::RobotSdk::MotionHighLevelClientImpl;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// More simulated time than passes while a thread ends by real time.
constexpr std::uint32_t kAmple = 1'000'000'000;

/// Simulated time that no cancellation cuts short.
void pass(std::uint32_t ms) {
  Pexal::PBase::CSemaphore nobodyPosts(0);
  EXPECT_FALSE(nobodyPosts.wait(ms));
}

/// The application's step inside a callback: it must not wait.
void takesNoTime(const std::function<void()>& step) {
  const auto begin = Pexal::PBase::CTime::getCurrentMilliSecond();
  step();
  EXPECT_EQ(Pexal::PBase::CTime::getCurrentMilliSecond(), begin);
}

class Connection : public ClientTest {};

TEST_F(Connection, LeaseHintBelowOneAsSignedValueIsAMinute) {
  for (const auto& [hint, lease] :
       {std::pair(0U, 60000U), {2147483648U, 60000U}, {1U, 1U}, {2147483647U, 2147483647U}}) {
    bus.forgetRequests();
    ASSERT_TRUE(client->connect(hint));
    ASSERT_TRUE(client->connect(hint + 5)) << "connected already: changes nothing";
    take();
    EXPECT_EQ(bus.requests("takeMotionControl").at(0).document["params"]["leaseTimeout"], lease);
    EXPECT_EQ(
        logged(1, "high level connected").back(),
        "high level connected: clientId=unitTest leaseHint=" + std::to_string(lease) + "ms\n");
    ASSERT_TRUE(client->disconnect());
  }
}

TEST_F(Connection, FailsWithoutAnEndpoint) {
  for (const Behaviour& lacking : {Behaviour{.rpc = false}, Behaviour{.eventBus = false}}) {
    log.take();
    bus.behave(lacking);
    EXPECT_FALSE(client->connect(1000));
    EXPECT_EQ(error(), 1U);
    EXPECT_EQ(client->getState(), 0U);
    EXPECT_THAT(bus.subscribedTopics(), IsEmpty());
    EXPECT_THAT(
        logged(4),
        ElementsAre("high level connect failed: robotServer rpc client/event unavailable\n"));
  }
  bus.behave({});
  connect();
}

TEST_F(Connection, DisconnectGivesBackStopsAndUnsubscribes) {
  hold();
  EXPECT_THAT(bus.subscribedTopics(), UnorderedElementsAre(kEventTopic, kStatusTopic));
  ASSERT_TRUE(client->disconnect());
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-1"));
  EXPECT_THAT(bus.subscribedTopics(), IsEmpty());
  for (const auto& reader : bus.readers()) EXPECT_TRUE(reader.removed) << reader.topic;
  EXPECT_EQ(told(), "");
  ASSERT_TRUE(client->disconnect());
  EXPECT_THAT(
      logged(1, "motion high level"),
      ElementsAre("motion high level worker started...\n", "motion high level worker stopped...\n",
                  "motion high level client disconnected\n"));
}

TEST_F(Connection, CallbacksAreSetBeforeConnectOnly) {
  const auto setAll = [this](int& events) {
    client->setConnectCallback({});
    client->setEventCallback([&](const auto&, const auto&) { ++events; });
    client->setMotionObservedCallback({});
    client->setSensorObservedCallback({});
  };
  int kept = 0;
  int late = 0;
  setAll(kept);
  connect();
  setAll(late);
  EXPECT_THAT(logged(3),
              ElementsAre(" set connect callback rejected: must call before connect\n",
                          " set event callback rejected: must call before connect\n",
                          " set motion observed callback rejected: must call before connect\n",
                          " set sensor observed callback rejected: must call before connect\n"));
  hostEvent({});
  ASSERT_TRUE(client->disconnect());
  setAll(late);
  connect();
  hostEvent({});
  EXPECT_EQ(kept, 1);
  EXPECT_EQ(late, 1);
}

TEST_F(Connection, EventsReachTheCallbackOnceWithTheirDetailAsText) {
  std::string heard;
  client->setEventCallback([&](const std::string& topic, const std::string& detail) {
    EXPECT_EQ(topic, kEventTopic);
    heard += detail + ';';
  });
  connect();
  hostEvent(object({{"detail", object({{"battery", 7}})}}));
  for (const Json::Value& other : {object({{"other", 1}}), Json::Value(), Json::Value("text"),
                                   Json::Value(Json::arrayValue)}) {
    hostEvent(other);
  }
  EXPECT_EQ(heard, R"({"battery":7};null;null;null;null;)");
}

/// The harness's client is made for "dog-7", the second as the robot board makes its own.
TEST_F(Connection, EventsOfAnotherDeviceMeanNothing) {
  const std::pair<Json::Value, bool> cases[] = {
      {"dog-7", true},   {"cat", false},
      {"dog-77", false}, {"dog", false},
      {"", true},        {Json::Value(), true},
      {7, true},         {Json::Value(Json::arrayValue), true}};
  int events = 0;
  const auto count = [&](const auto&, const auto&) { ++events; };
  client->setEventCallback(count);
  hold();
  for (const auto& [deviceNo, taken] : cases) {
    SCOPED_TRACE(text(deviceNo));
    events = 0;
    hostEvent(object({{"deviceNo", deviceNo}}));
    EXPECT_EQ(events, taken ? 1 : 0);
    for (const char* controller : {"other", "controller-1"}) {
      controlStatus(
          object({{"deviceNo", deviceNo}, {"controlled", true}, {"controller", controller}}));
    }
    EXPECT_EQ(told(), taken ? "1:5 2:0" : "");
  }

  const auto board =
      std::make_shared<MotionHighLevelClientImpl>(MotionHighLevelClientImpl::Kind::kBoard, "");
  events = 0;
  board->setEventCallback(count);
  ASSERT_TRUE(board->connect(0));
  bus.inject("brainServer", "brainServer.host.event", object({{"deviceNo", "cat"}}));
  EXPECT_EQ(events, 1);
  board->disconnect();
}

TEST_F(Connection, RecordsThatAreStillUnderWayReachNobodyAfterDisconnect) {
  const auto impl = std::make_shared<MotionHighLevelClientImpl>(
      MotionHighLevelClientImpl::Kind::kRemote, "dog-7");
  int delivered = 0;
  impl->setMotionObservedCallback([&](const auto&) { ++delivered; });
  EXPECT_TRUE(impl->connect(0));
  impl->deliverMotionObserved({});
  impl->disconnect();
  impl->deliverMotionObserved({});
  EXPECT_EQ(delivered, 1);
}

TEST_F(Connection, CallbackThatThrowsHarmsNobody) {
  client->setConnectCallback([this](std::uint32_t state, std::uint32_t code) {
    note(state, code);
    throw std::runtime_error("application error");
  });
  client->setEventCallback([](const auto&, const auto&) { throw 5; });
  hold();
  hostEvent({});
  ASSERT_TRUE(client->releaseMotionControl());
  EXPECT_EQ(told(), "1:0");
}

TEST_F(Connection, DisconnectWaitsForAnEventCallbackButNotForever) {
  for (const std::uint32_t takes : {100U, kAmple}) {
    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;
    client->setEventCallback([&](const auto&, const auto&) {
      ++begun;
      pass(takes);
      ++ended;
    });
    connect();
    bus.injectFromThread(kServer, kEventTopic, {});
    clock.advance(1);
    ASSERT_TRUE(begun == 1 && ended == 0);
    ASSERT_TRUE(client->disconnect());
    EXPECT_EQ(ended, takes == kAmple ? 0 : 1);
    clock.advance(kAmple);
    EXPECT_EQ(ended, 1);
  }
}

// --- from inside callbacks ---

/// On the worker itself, and on the event bus's thread while the worker waits or is in a request.
TEST_F(Connection, ReconnectInsideACallbackStartsAfreshAndGivesTheOldControlBack) {
  enum class Where { kWorker, kBus, kBusDuringTake };
  for (const Where where : {Where::kWorker, Where::kBus, Where::kBusDuringTake}) {
    SCOPED_TRACE(static_cast<int>(where));
    bus.forgetRequests();
    client = makeRemoteHighLevelClient("dog-7");
    bool again = true;
    const auto reconnect = [&] {
      if (!std::exchange(again, false)) return;
      takesNoTime([&] {
        EXPECT_TRUE(client->disconnect() && client->connect(0));
        EXPECT_TRUE(client->disconnect() && client->connect(0));
        EXPECT_TRUE(client->takeMotionControl(kAmple));
      });
    };
    client->setConnectCallback([&](std::uint32_t state, std::uint32_t code) {
      note(state, code);
      if (where == Where::kWorker) reconnect();
    });
    int events = 0;
    client->setEventCallback([&](const auto&, const auto&) {
      ++events;
      if (where != Where::kWorker) reconnect();
    });
    robot.slow("takeMotionControl", 1000);
    connect();
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(where == Where::kBusDuringTake ? 3500 : 4000);
    if (where != Where::kWorker) bus.injectFromThread(kServer, kEventTopic, {});
    ASSERT_TRUE(until([this] {
      return bus.requests("takeMotionControl").size() == 2 && client->getState() == 2 &&
             !bus.requests("renewMotionControl").empty();
    }));
    EXPECT_THAT(speakers("takeMotionControl"), testing::Each(Eq(kOwnId)));
    ASSERT_THAT(speakers("releaseMotionControl"), SizeIs(1)) << "the first grant, once";
    EXPECT_NE(speakers("renewMotionControl").back(), speakers("releaseMotionControl").back());
    EXPECT_EQ(told(), where == Where::kBusDuringTake ? "2:0" : "2:0 2:0");
    events = 0;
    hostEvent({});
    EXPECT_EQ(events, 1);
    ASSERT_TRUE(client->disconnect());
  }
}

TEST_F(Connection, ConnectElsewhereWaitsForTheWorkerThatACallbackLeftBehind) {
  client->setEventCallback([this](const auto&, const auto&) { client->disconnect(); });
  connect();
  robot.slow("setMotionMasterRole", 4000);
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(1000);
  hostEvent({});
  EXPECT_THAT(logged(1, "worker stopped"), IsEmpty()) << "it is still in its request";
  ASSERT_TRUE(client->connect(0));
  EXPECT_THAT(logged(1, "worker stopped"), SizeIs(1));
  EXPECT_TRUE(client->queryMotionState(nullptr, 100)) << "usable as soon as connect returns";
}

// --- disconnecting in the middle of something ---

TEST_F(Connection, WhatIsUnderWayAtDisconnectIsGivenBackAndNobodyHears) {
  connect();
  robot.slow("takeMotionControl", 2000);
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(4000);  // the grant would come in a second
  ASSERT_TRUE(client->disconnect());
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-1"));
  EXPECT_THAT(logged(1, "acquired"), IsEmpty());
  EXPECT_EQ(told(), "");

  bus.forgetRequests();
  connect();
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(6000);
  EXPECT_EQ(told(), "2:0");
  robot.slow("releaseMotionControl", 100);
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(50);
  ASSERT_TRUE(client->disconnect());
  EXPECT_THAT(speakers("releaseMotionControl"), ElementsAre("controller-2"));
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_EQ(told(), "");
}

/// The wish of one connection is none of the next one's, nor are its pause, retries and deadlines.
TEST_F(Connection, ReconnectForgetsTheWish) {
  for (const Reply& role : {accepted(), refused()}) {
    robot.on("setMotionMasterRole", role);
    connect();
    ASSERT_TRUE(client->takeMotionControl(5000));
    clock.advance(100);
    ASSERT_TRUE(client->disconnect());
    EXPECT_THAT(bus.requests("takeMotionControl"), IsEmpty());
    bus.forgetRequests();
    connect();
    EXPECT_EQ(error(), 0U);
    clock.advance(60'000);
    EXPECT_THAT(bus.requests(), IsEmpty());
    EXPECT_EQ(told(), "");
  }
}

}  // namespace
