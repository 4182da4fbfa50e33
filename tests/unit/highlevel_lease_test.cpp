// The lease of motion control, on simulated time. A worker that spun would stop that time, and the
// clock's watchdog would end the test.

#include <cstdio>
#include <map>

#include "pbase/CShmTripleBuffer.h"
#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Json::Value kNull;

class Lease : public ClientTest {
 protected:
  void SetUp() override { connect(); }

  /// Whether the client took the loss for a preemption: then it knows its own id again.
  bool restorable() {
    controlStatus(true, "controller-1");
    return told() == "2:0";
  }
  /// Another client, connected, whose every grant is "controller-1".
  void startAfresh() {
    client = listened(orvane::RobotSdk::makeRemoteHighLevelClient("dog-7"));
    robot.on("takeMotionControl",
             accepted(object({{"controller", "controller-1"}, {"leaseTimeout", 30000}})));
    connect();
  }
};

/// A cell: the state and the last error after the event, what the connect callback was told, under
/// whose identity the client speaks then, and the state a minute later.
TEST_F(Lease, EveryEventInEveryState) {
  using Step = std::function<void()>;
  const Step connectAgain = [this] { client->connect(0); };
  const Step wish = [this] { client->takeMotionControl(0); };
  const Step release = [this] { client->releaseMotionControl(); };
  const Step disconnect = [this] { client->disconnect(); };
  const Step ours = [this] { controlStatus(true, "controller-1"); };
  const Step others = [this] { controlStatus(true, "other"); };
  const Step nobodys = [this] { controlStatus(false, ""); };
  const Step states[] = {disconnect, [] {},
                         [&] { wish(), clock.advance(1000); },  // in the pause before the take
                         [this] { take(); }, [&] { take(), others(), told(), error(); }};
  const struct {
    const char* event;
    const Step& happens;
    const char* cells[std::size(states)];
  } rows[] = {
      // clang-format off
      //                          disconnected     connected        taking           controlling        preempted
      {"connect", connectAgain, {"1 0 - own 1",   "1 0 - own 1",   "1 0 - own 2",   "2 0 - held 2",   "1 0 - held 1"}},
      {"take", wish,            {"0 6 - none 0",  "1 0 - own 2",   "1 0 - own 2",   "2 0 - held 2",   "1 0 - held 1"}},
      {"release", release,      {"0 7 - none 0",  "1 7 - own 1",   "1 7 - own 2",   "1 0 1:0 own 1",  "1 7 - held 1"}},
      {"ours", ours,            {"0 0 - none 0",  "1 0 - own 1",   "1 0 - own 2",   "2 0 - held 2",   "2 0 2:0 held 2"}},
      {"other's", others,       {"0 0 - none 0",  "1 0 - own 1",   "1 0 - own 2",   "1 5 1:5 held 1", "1 0 - held 1"}},
      {"nobody's", nobodys,     {"0 0 - none 0",  "1 0 - own 1",   "1 0 - own 2",   "1 5 1:5 own 1",  "1 0 - own 1"}},
      {"disconnect", disconnect, {"0 0 - none 0", "0 0 - none 0",  "0 6 - none 0",  "0 0 - none 0",   "0 0 - none 0"}},
      // clang-format on
  };
  const auto outcome = [this] {
    const std::string heard = told();
    const auto state = client->getState();
    const auto code = error();
    const bool speaks = client->getSystemStatus(nullptr, 100);
    const bool own = speaks && speakers("getSystemStatus").back() == kOwnId;
    clock.advance(60'000);
    std::ostringstream cell;
    cell << state << ' ' << code << ' ' << (heard.empty() ? "-" : heard) << ' '
         << (own      ? "own"
             : speaks ? "held"
                      : "none")
         << ' ' << client->getState();
    return cell.str();
  };
  for (const auto& [event, happens, cells] : rows) {
    for (std::size_t state = 0; state < std::size(states); ++state) {
      SCOPED_TRACE(std::string(event) + " in state " + std::to_string(state));
      startAfresh();
      states[state]();
      happens();
      EXPECT_EQ(outcome(), cells[state]);
      client->disconnect();
      told();
      hold();  // a new connection knows nothing of the former one
      client->disconnect();
    }
  }
}

TEST_F(Lease, TakeClaimsTheRoleWaitsAndThenSpeaksAsController) {
  const auto begin = now();
  take();
  const auto role = bus.requests("setMotionMasterRole").at(0);
  const auto taken = bus.requests("takeMotionControl").at(0);
  EXPECT_EQ(role.atMs, begin);
  EXPECT_EQ(taken.atMs, begin + 3000);
  for (const Request& request : {role, taken}) {
    EXPECT_EQ(request.server, kServer);
    EXPECT_EQ(request.service, "robotAppService");
    EXPECT_EQ(request.deviceId, "dog-7");
    EXPECT_EQ(request.timeoutMs, 5000U);
    EXPECT_EQ(request.document["call"], object({{"clientId", kOwnId}}));
  }
  EXPECT_EQ(role.document["params"], object({{"master", "cerebellum"}}));
  EXPECT_EQ(taken.document["params"], object({{"cmdMode", true}, {"leaseTimeout", 60000U}}));

  EXPECT_TRUE(client->standing(100));
  EXPECT_THAT(speakers("startMotionAction"), ElementsAre("controller-1"));
  EXPECT_THAT(logged(1, "high level acquired"),
              ElementsAre("high level acquired: controller=controller-1 lease=30000ms\n"));
  EXPECT_THAT(logged(1, "high level controlled"),
              ElementsAre("high level controlled: lease=30000ms\n"));
}

TEST_F(Lease, RenewsAtAThirdOfTheGrantOrEveryHalfSecondWhenItIsShort) {
  // Grants that are no unsigned number keep the last one; the first grant ever is 60000.
  const std::pair<Json::Value, std::uint64_t> cases[] = {
      {kNull, 20000}, {30000, 10000}, {"1200", 10000}, {-3, 10000}, {1e20, 10000}, {1200, 500},
      {kNull, 500},   {1499, 500},    {1502, 500},     {1503, 501}, {0, 500}};
  for (const auto& [lease, interval] : cases) {
    SCOPED_TRACE(text(lease));
    robot.setLease(lease);
    take();
    bus.forgetRequests();
    const auto taken = now();
    clock.advance(static_cast<std::uint32_t>(3 * interval + interval / 2));
    EXPECT_THAT(times("renewMotionControl", taken),
                ElementsAre(interval, 2 * interval, 3 * interval));
    const auto renewal = bus.requests("renewMotionControl").at(0);
    EXPECT_EQ(renewal.timeoutMs, 3000U);
    EXPECT_FALSE(renewal.document.isMember("params"));
    ASSERT_TRUE(client->releaseMotionControl());
    EXPECT_EQ(told(), "1:0");
  }
}

TEST_F(Lease, RenewalIsCountedFromTheEndOfTheLastOne) {
  robot.slow("renewMotionControl", 2000);
  take();
  const auto begin = now();
  ASSERT_TRUE(client->takeMotionControl(1)) << "a deadline that nothing can act on";
  clock.advance(40'000);
  EXPECT_THAT(times("renewMotionControl", begin), ElementsAre(10'000, 22'000, 34'000));
}

TEST_F(Lease, AcquiringRetriesEverySecondWarnsEveryFiveAndGivesUp) {
  const std::string gaveUp =
      " high level take control timeout (deadline reached), give up acquire\n";
  const struct {
    const char* refusedMethod;
    std::uint32_t limitMs;
    std::vector<std::uint64_t> attempts;
    std::uint32_t endsAtMs;
    Texts warnings;
  } cases[] = {
      {"setMotionMasterRole",
       0,
       {0, 1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000},
       10'000,
       {" set motion master role failed, retry after 1000ms (deadline in 10000ms)\n",
        " set motion master role failed, retry after 1000ms (deadline in 5000ms)\n", gaveUp}},
      {"setMotionMasterRole",
       500,
       {0},
       1000,
       {" set motion master role failed, retry after 1000ms (deadline in 500ms)\n", gaveUp}},
      {"takeMotionControl",
       10'000,
       {3000, 7000, 11'000},
       12'000,
       {" take motion control failed, retry after 1000ms (deadline in 7000ms)\n",
        " take motion control failed, retry after 1000ms (deadline in -1000ms)\n", gaveUp}}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.refusedMethod);
    bus.forgetRequests();
    log.take();
    robot.on("setMotionMasterRole", accepted());
    robot.on(row.refusedMethod, refused(7));
    const auto begin = now();
    ASSERT_TRUE(client->takeMotionControl(row.limitMs));
    clock.advance(row.endsAtMs - 1);
    EXPECT_EQ(told(), "");
    clock.advance(1);
    EXPECT_EQ(told(), "1:2");
    EXPECT_EQ(error(), 2U);
    EXPECT_EQ(error(), 0U) << "reading clears";
    clock.advance(100'000);
    EXPECT_EQ(times(row.refusedMethod, begin), row.attempts);
    EXPECT_EQ(logged(3), row.warnings);
  }
}

TEST_F(Lease, SecondTakeMovesTheDeadline) {
  robot.on("setMotionMasterRole", refused());
  ASSERT_TRUE(client->takeMotionControl(2000));
  clock.advance(1500);
  ASSERT_TRUE(client->takeMotionControl(5000));
  clock.advance(5499);  // the next retry is due half a second after the deadline
  EXPECT_EQ(told(), "");
  clock.advance(1);
  EXPECT_EQ(told(), "1:2");
}

TEST_F(Lease, FailedTakeIsErrorTwoWhateverTheReason) {
  const Reply failures[] = {transportFailure(1),
                            refused(5),
                            accepted(),
                            accepted(object({{"controller", 5}})),
                            accepted("controller"),
                            accepted(Json::Value(Json::arrayValue))};
  for (const Reply& failure : failures) {
    SCOPED_TRACE(text(failure.document));
    log.take();
    robot.on("takeMotionControl", failure);
    ASSERT_TRUE(client->takeMotionControl(4000));
    clock.advance(3500);
    EXPECT_EQ(error(), 2U);
    EXPECT_EQ(client->getState(), 1U);
    clock.advance(10'000);
    EXPECT_EQ(told(), "1:2");
    if (!failure.document["result"].asBool()) continue;
    EXPECT_EQ(logged(4).at(0),
              "motion high level take motion control response missing controller\n");
  }
}

TEST_F(Lease, LostRenewalEndsControlForGood) {
  const struct {
    Reply reply;
    std::uint32_t code;
    const char* line;
  } cases[] = {{refused(29), 5, " high level lost control (errno=0x1d, reason=revoked)\n"},
               {refused(28), 4, " high level lost control (errno=0x1c, reason=expired)\n"},
               {refused(0), 4, " high level lost control (errno=0x0, reason=expired)\n"},
               {transportFailure(1), 4, " high level lost control (errno=0x6e, reason=expired)\n"}};
  for (const auto& [reply, code, line] : cases) {
    SCOPED_TRACE(line);
    robot.on("renewMotionControl", reply);
    take();
    bus.forgetRequests();
    clock.advance(10'000);
    EXPECT_EQ(told(), "1:" + std::to_string(code));
    EXPECT_EQ(client->getState(), 1U);
    EXPECT_EQ(error(), code);
    EXPECT_EQ(logged(3).back(), line);
    clock.advance(120'000);
    EXPECT_THAT(bus.requests(), SizeIs(1)) << "neither renewed nor taken nor released again";
    EXPECT_TRUE(client->getSystemStatus(nullptr, 100));
    EXPECT_THAT(speakers("getSystemStatus"), ElementsAre(kOwnId));
  }
}

TEST_F(Lease, FailedRenewalIsStaleWhenControlChangedMeanwhile) {
  take();
  robot.on("renewMotionControl", [this](const Request&) {
    controlStatus(true, "other");
    return refused(29);
  });
  clock.advance(10'000);
  EXPECT_EQ(told(), "1:5") << "the event's, not the renewal's";
  EXPECT_TRUE(restorable());

  robot.on("renewMotionControl", [this](const Request&) {
    controlStatus(true, "other");
    controlStatus(true, "controller-1");
    Reply late = refused(29);
    late.takesMs = 10;
    return late;
  });
  clock.advance(10'020);
  EXPECT_EQ(told(), "1:5 2:0");
  EXPECT_EQ(client->getState(), 2U);
  const char* const line = "high level stale renew failure ignored after control status changed\n";
  EXPECT_THAT(logged(1, "stale"), ElementsAre(line, line));
}

TEST_F(Lease, PreemptedClientAsksForNothingAndIsRestoredWithoutATake) {
  take();
  controlStatus(true, "other");
  bus.forgetRequests();
  ASSERT_TRUE(client->takeMotionControl(500)) << "recorded, though nothing can be done about it";
  clock.advance(120'000);
  EXPECT_THAT(bus.requests(), IsEmpty());
  EXPECT_EQ(told(), "1:5");
  const auto restored = now();
  controlStatus(true, "controller-1");
  EXPECT_EQ(error(), 0U) << "clears what the preemption left";
  clock.advance(10'000);
  EXPECT_THAT(bus.requests(), SizeIs(1));
  EXPECT_THAT(times("renewMotionControl", restored), ElementsAre(10'000));
  EXPECT_THAT(speakers("renewMotionControl"), ElementsAre("controller-1"));
  EXPECT_THAT(logged(3), ElementsAre(" control changed by server, current controller=other, self "
                                     "preempted -> kConnected\n"));
  EXPECT_THAT(logged(1, "restored"),
              ElementsAre("high level original controller restored: controller=controller-1\n"));
}

TEST_F(Lease, ControlledIsATrueBoolOrAnyStringButZero) {
  const auto status = [](const Json::Value& controlled) {
    return object({{"controlled", controlled}, {"controller", "other"}});
  };
  const Json::Value emptyArray(Json::arrayValue);
  const Json::Value emptyObject(Json::objectValue);
  const std::pair<bool, std::vector<Json::Value>> cases[] = {
      {true,
       {status(true), status("1"), status(""), status("00"), status("false"),
        object({{"controlled", true}}), object({{"controlled", true}, {"controller", 3}})}},
      {false,
       {status("0"), status(false), status(1), status(2.5), status(kNull), status(emptyObject),
        object({{"controller", "controller-1"}}), emptyObject, kNull, "text", emptyArray}}};
  for (const auto& [controlled, payloads] : cases) {
    for (const Json::Value& payload : payloads) {
      SCOPED_TRACE(text(payload));
      startAfresh();
      take();
      controlStatus(payload);
      EXPECT_EQ(told(), "1:5");
      EXPECT_EQ(restorable(), controlled);
      if (!controlled) take();
      client->disconnect();
    }
  }
}

TEST_F(Lease, ReleaseGivesTheControllerIdBackOneWayEvenIfThatFails) {
  for (const std::string controller : {"controller-1", "controller-2"}) {
    take();
    bus.forgetRequests();
    ASSERT_TRUE(client->releaseMotionControl());
    EXPECT_EQ(told(), "1:0");
    const auto release = bus.requests();
    ASSERT_THAT(release, SizeIs(1));
    EXPECT_EQ(release[0].method, "releaseMotionControl");
    EXPECT_TRUE(release[0].oneWay);
    EXPECT_EQ(release[0].document, object({{"call", object({{"clientId", controller}})}}));
    robot.on("releaseMotionControl", transportFailure(7));
  }
  EXPECT_EQ(error(), 3U);
  const char* const released = "motion controller released to kConnected\n";
  EXPECT_THAT(logged(1, "released"), ElementsAre(released, released));
  EXPECT_THAT(logged(4), ElementsAre("high level sendAction robotAppService::"
                                     "releaseMotionControl failed: scripted failure\n"));
  EXPECT_THAT(logged(3), ElementsAre(" release motion control failed (best-effort), "
                                     "controller=controller-2\n"));
  bus.forgetRequests();
  EXPECT_TRUE(client->disconnect());
  EXPECT_THAT(bus.requests(), IsEmpty()) << "given back already";
}

/// The server's word on our own release is no loss, and a preemption during it doesn't stick.
TEST_F(Lease, StatusDuringTheReleaseEndsControlOnce) {
  for (const auto& [controlled, notified] : {std::pair(false, "1:0"), {true, "1:5"}}) {
    take();
    robot.during("releaseMotionControl", [&, flag = controlled] { controlStatus(flag, "other"); });
    ASSERT_TRUE(client->releaseMotionControl());
    EXPECT_EQ(told(), notified);
    EXPECT_EQ(error(), controlled ? 5U : 0U);
  }
  take();
}

/// Without its buffers the board's client keeps trying every 2 s, asks for nothing, and gives up at
/// the deadline. With them it takes control, through the brain whatever its role, and delivers, on
/// a thread where it may also end.
TEST_F(Lease, TheBoardClientNeedsItsObservedBuffersToTakeControl) {
  using orvane::RobotSdk::ObservedMotionRecord;
  using orvane::RobotSdk::ObservedSensorRecord;
  const std::pair<bool, const char*> roles[] = {{true, "brainServer"}, {false, "cerebellumServer"}};
  for (const auto& [asMaster, motionServer] : roles) {
    client = listened(orvane::RobotSdk::makeBoardHighLevelClient(asMaster));
    int records = 0;
    client->setMotionObservedCallback([&](const auto&) {
      if (++records == 2) client.reset();
    });
    connect();
    ASSERT_TRUE(client->takeMotionControl(3000));
    clock.advance(3999);
    EXPECT_EQ(told(), "");
    clock.advance(1);
    EXPECT_EQ(told(), "1:2");
    EXPECT_THAT(bus.requests(), IsEmpty());

    {
      Pexal::Memory::CShmTripleBuffer motion;
      Pexal::Memory::CShmTripleBuffer sensor;
      ASSERT_TRUE(motion.create("motion_observed", sizeof(ObservedMotionRecord)));
      ASSERT_TRUE(sensor.create("motion_sensor_observed", sizeof(ObservedSensorRecord)));
      ASSERT_TRUE(client->takeMotionControl(0));
      clock.advance(6000);
      EXPECT_EQ(told(), "2:0");
      EXPECT_TRUE(client->setMotionObservedEnable(R"({"motionEnable": true})", nullptr, 70));
      const ObservedMotionRecord record{};
      EXPECT_GT(motion.put(&record, sizeof record), 0U);
      clock.advance(40);
      EXPECT_EQ(records, 1);
      EXPECT_GT(motion.put(&record, sizeof record), 0U);
    }
    std::map<std::string, std::string> servers;
    for (const Request& request : bus.requests()) servers[request.method] = request.server;
    EXPECT_THAT(servers, testing::UnorderedElementsAre(
                             testing::Pair("setMotionMasterRole", motionServer),
                             testing::Pair("takeMotionControl", "brainServer"),
                             testing::Pair("setMotionObservedEnable", motionServer)));
    clock.advance(40);
    EXPECT_EQ(client, nullptr) << "released inside its callback, it ends by itself";
    EXPECT_THAT(bus.subscribedTopics(), IsEmpty());
    EXPECT_THAT(bus.requests("releaseMotionControl"), SizeIs(1));
    bus.forgetRequests();
    for (const char* name : {"motion_observed", "motion_sensor_observed"}) {
      EXPECT_EQ(std::remove((std::string("/dev/shm/orvane.") + name).c_str()), 0);
    }
  }
}

}  // namespace
