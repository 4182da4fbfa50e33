// The lease of motion control, on simulated time. A worker that spun would stop that time, and the
// clock's watchdog would end the test.

#include <optional>

#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

class Lease : public ClientTest {
 protected:
  /// Whether the client took the loss for a preemption: then it knows its own id again.
  bool restorable() {
    controlStatus(true, "controller-1");
    return client->getState() == 2;
  }
};

TEST_F(Lease, TakeClaimsTheRoleWaitsAndThenSpeaksAsController) {
  connect();
  const auto begin = now();
  ASSERT_TRUE(client->takeMotionControl(0));
  EXPECT_EQ(client->getState(), 1U);
  clock.advance(3000);

  const auto role = bus.requests("setMotionMasterRole");
  const auto take = bus.requests("takeMotionControl");
  ASSERT_THAT(role, SizeIs(1));
  ASSERT_THAT(take, SizeIs(1));
  EXPECT_EQ(role[0].atMs, begin);
  EXPECT_EQ(take[0].atMs, begin + 3000);
  for (const Request& request : {role[0], take[0]}) {
    EXPECT_EQ(request.server, kServer);
    EXPECT_EQ(request.service, "robotAppService");
    EXPECT_EQ(request.deviceId, "dog-7");
    EXPECT_EQ(request.timeoutMs, 5000U);
    EXPECT_EQ(request.document["call"], object({{"clientId", kOwnId}}));
  }
  EXPECT_EQ(role[0].document["params"], object({{"master", "cerebellum"}}));
  EXPECT_EQ(take[0].document["params"], object({{"cmdMode", true}, {"leaseTimeout", 60000U}}));

  EXPECT_THAT(notifications.take(), ElementsAre(Pair(2, 0)));
  EXPECT_TRUE(client->standing(100));
  EXPECT_THAT(speakers("startMotionAction"), ElementsAre("controller-1"));
  EXPECT_THAT(log.client(1, "high level acquired"),
              ElementsAre("high level acquired: controller=controller-1 lease=30000ms\n"));
  EXPECT_THAT(log.client(1, "high level controlled"),
              ElementsAre("high level controlled: lease=30000ms\n"));
}

TEST_F(Lease, RenewsAtAThirdOfTheGrantOrEveryHalfSecondWhenItIsShort) {
  struct Case {
    Json::Value lease;
    std::uint64_t intervalMs;
  };
  // Grants that are no unsigned number keep the last one; the first grant ever is 60000.
  const Case cases[] = {{Json::Value(), 20000},
                        {30000, 10000},
                        {"1200", 10000},
                        {-3, 10000},
                        {1e20, 10000},
                        {1200, 500},
                        {Json::Value(), 500},
                        {1499, 500},
                        {1500, 500},
                        {1502, 500},
                        {1503, 501},
                        {0, 500}};
  connect();
  for (const auto& [lease, intervalMs] : cases) {
    SCOPED_TRACE(lease.toStyledString());
    robot.setLease(lease);
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(3000);
    const auto taken = bus.requests("takeMotionControl").back().atMs;
    bus.forgetRequests();
    clock.advance(static_cast<std::uint32_t>(3 * intervalMs + intervalMs / 2));
    EXPECT_THAT(times("renewMotionControl", taken),
                ElementsAre(intervalMs, 2 * intervalMs, 3 * intervalMs));
    const auto renewal = bus.requests("renewMotionControl").at(0);
    EXPECT_EQ(renewal.timeoutMs, 3000U);
    EXPECT_FALSE(renewal.document.isMember("params"));
    ASSERT_TRUE(client->releaseMotionControl());
    clock.advance(0);
  }
}

TEST_F(Lease, RenewalIsCountedFromTheEndOfTheLastOne) {
  robot.on("renewMotionControl", [](const Request&) {
    Reply slow = accepted();
    slow.takesMs = 2000;
    return slow;
  });
  hold();
  const auto begin = now();
  clock.advance(30'000);
  EXPECT_THAT(times("renewMotionControl", begin), ElementsAre(10'000, 22'000));
}

TEST_F(Lease, RoleRefusedRetriesEverySecondUntilTheDeadlineAndWarnsEveryFive) {
  robot.on("setMotionMasterRole", refused(7));
  connect();
  const auto begin = now();
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(9999);
  EXPECT_THAT(notifications.take(), IsEmpty());
  clock.advance(1);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 2)));
  EXPECT_EQ(client->getLastError(), 2U);
  EXPECT_EQ(client->getLastError(), 0U);
  clock.advance(100'000);
  EXPECT_THAT(times("setMotionMasterRole", begin),
              ElementsAre(0, 1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000));
  EXPECT_THAT(
      log.client(3),
      ElementsAre(" set motion master role failed, retry after 1000ms (deadline in 10000ms)\n",
                  " set motion master role failed, retry after 1000ms (deadline in 5000ms)\n",
                  " high level take control timeout (deadline reached), give up acquire\n"));
}

TEST_F(Lease, TakeRefusedRetriesWithTheWholeSequenceAndGivesUp) {
  robot.on("takeMotionControl", refused());
  connect();
  const auto begin = now();
  ASSERT_TRUE(client->takeMotionControl(10'000));
  clock.advance(60'000);
  EXPECT_THAT(times("takeMotionControl", begin), ElementsAre(3000, 7000, 11'000));
  EXPECT_THAT(
      log.client(3),
      ElementsAre(" take motion control failed, retry after 1000ms (deadline in 7000ms)\n",
                  " take motion control failed, retry after 1000ms (deadline in -1000ms)\n",
                  " high level take control timeout (deadline reached), give up acquire\n"));
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 2)));
}

TEST_F(Lease, FailedTakeIsErrorTwoWhateverTheReason) {
  const Reply failures[] = {transportFailure(1),
                            refused(5),
                            accepted(),
                            accepted(object({{"controller", 5}})),
                            accepted("controller"),
                            accepted(Json::Value(Json::arrayValue))};
  connect();
  std::size_t unreadable = 0;
  for (const Reply& failure : failures) {
    SCOPED_TRACE(failure.document.toStyledString());
    robot.on("takeMotionControl", failure);
    unreadable += failure.document["result"].asBool() ? 1 : 0;
    ASSERT_TRUE(client->takeMotionControl(4000));
    clock.advance(3500);
    EXPECT_EQ(client->getLastError(), 2U);
    EXPECT_EQ(client->getState(), 1U);
    clock.advance(10'000);
    EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 2)));
  }
  EXPECT_THAT(log.client(4, "missing"),
              testing::AllOf(SizeIs(unreadable),
                             testing::Each("motion high level take motion control response missing "
                                           "controller\n")));
}

TEST_F(Lease, LostRenewalEndsControlForGood) {
  struct Case {
    Reply reply;
    std::uint32_t code;
    const char* line;
  };
  const Case cases[] = {
      {refused(29), 5, " high level lost control (errno=0x1d, reason=revoked)\n"},
      {refused(28), 4, " high level lost control (errno=0x1c, reason=expired)\n"},
      {refused(0), 4, " high level lost control (errno=0x0, reason=expired)\n"},
      {transportFailure(1), 4, " high level lost control (errno=0x6e, reason=expired)\n"}};
  connect();
  for (const auto& [reply, code, line] : cases) {
    SCOPED_TRACE(line);
    robot.on("renewMotionControl", reply);
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(3000);
    ASSERT_THAT(notifications.take(), ElementsAre(Pair(2, 0)));
    bus.forgetRequests();
    clock.advance(10'000);
    EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, code)));
    EXPECT_EQ(client->getState(), 1U);
    EXPECT_EQ(client->getLastError(), code);
    EXPECT_EQ(log.client(3).back(), line);
    clock.advance(120'000);
    EXPECT_THAT(bus.requests(), SizeIs(1)) << "neither renewed nor taken nor released again";
    EXPECT_TRUE(client->getSystemStatus(nullptr, 100));
    EXPECT_THAT(speakers("getSystemStatus"), ElementsAre(kOwnId));
  }
}

TEST_F(Lease, FailedRenewalIsStaleWhenControlChangedMeanwhile) {
  const Json::Value taken = object({{"controlled", true}, {"controller", "other"}});
  const Json::Value back = object({{"controlled", true}, {"controller", "controller-1"}});
  hold();
  robot.on("renewMotionControl", [&](const Request&) {
    bus.inject(kServer, kStatusTopic, taken);
    return refused(29);
  });
  clock.advance(10'000);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 5))) << "the event's, not the renewal's";
  EXPECT_TRUE(restorable());
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(2, 0)));

  robot.on("renewMotionControl", [&](const Request&) {
    bus.inject(kServer, kStatusTopic, taken);
    bus.inject(kServer, kStatusTopic, back);
    Reply late = refused(29);
    late.takesMs = 10;
    return late;
  });
  clock.advance(10'020);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 5), Pair(2, 0)));
  EXPECT_EQ(client->getState(), 2U);
  EXPECT_THAT(log.client(1, "stale"),
              ElementsAre("high level stale renew failure ignored after control status changed\n",
                          "high level stale renew failure ignored after control status changed\n"));
}

TEST_F(Lease, PreemptedClientWaitsAndIsRestoredWithoutATake) {
  hold();
  controlStatus(true, "other");
  EXPECT_EQ(client->getState(), 1U);
  EXPECT_EQ(client->getLastError(), 5U);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 5)));
  controlStatus(true, "third");
  EXPECT_THAT(notifications.take(), IsEmpty());
  EXPECT_FALSE(client->standing(100));
  EXPECT_EQ(client->getLastError(), 7U);

  bus.forgetRequests();
  ASSERT_TRUE(client->takeMotionControl(500)) << "recorded, though nothing can be done about it";
  clock.advance(120'000);
  EXPECT_THAT(bus.requests(), IsEmpty());

  EXPECT_FALSE(client->releaseMotionControl());  // leaves error 7
  const auto restored = now();
  controlStatus(true, "controller-1");
  EXPECT_EQ(client->getState(), 2U);
  EXPECT_EQ(client->getLastError(), 0U);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(2, 0)));
  clock.advance(120'000);
  EXPECT_THAT(bus.requests("takeMotionControl"), IsEmpty());
  EXPECT_EQ(times("renewMotionControl", restored).at(0), 10'000U);
  EXPECT_EQ(speakers("renewMotionControl").at(0), "controller-1");

  EXPECT_THAT(log.client(3, "control changed"),
              ElementsAre(" control changed by server, current controller=other, self preempted -> "
                          "kConnected\n"));
  EXPECT_THAT(log.client(1, "restored"),
              ElementsAre("high level original controller restored: controller=controller-1\n"));
}

TEST_F(Lease, FreedControlEndsTheWishAndTheIdentity) {
  hold();
  controlStatus(true, "other");
  notifications.take();
  controlStatus(false, "");
  EXPECT_THAT(notifications.take(), IsEmpty()) << "the application knows that it lost control";
  bus.forgetRequests();
  clock.advance(120'000);
  EXPECT_THAT(bus.requests(), IsEmpty());
  EXPECT_FALSE(restorable());
  EXPECT_TRUE(client->getSystemStatus(nullptr, 100));
  EXPECT_THAT(speakers("getSystemStatus"), ElementsAre(kOwnId));
}

TEST_F(Lease, ControlledIsABoolOrAnyStringButZero) {
  const Json::Value gone;
  struct Case {
    Json::Value payload;
    bool controlled;
  };
  const auto status = [](Json::Value controlled) {
    return object({{"controlled", std::move(controlled)}, {"controller", "other"}});
  };
  const Case cases[] = {{status(true), true},
                        {status("1"), true},
                        {status(""), true},
                        {status("00"), true},
                        {status("false"), true},
                        {object({{"controlled", true}}), true},
                        {object({{"controlled", true}, {"controller", 3}}), true},
                        {status("0"), false},
                        {status(false), false},
                        {status(1), false},
                        {status(2.5), false},
                        {status(gone), false},
                        {status(Json::Value(Json::objectValue)), false},
                        {object({{"controller", "controller-1"}}), false},
                        {Json::Value(Json::objectValue), false},
                        {gone, false},
                        {"text", false},
                        {Json::Value(Json::arrayValue), false}};
  for (const auto& [payload, controlled] : cases) {
    SCOPED_TRACE(payload.toStyledString());
    client = makeClient();
    robot.on("takeMotionControl", accepted(object({{"controller", "controller-1"}})));
    hold();
    bus.inject(kServer, kStatusTopic, payload);
    EXPECT_EQ(client->getState(), 1U);
    EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 5)));
    EXPECT_EQ(restorable(), controlled);
    client->disconnect();
    notifications.take();
  }
}

TEST_F(Lease, StatusOfOthersMeansNothingWithoutControl) {
  connect();
  controlStatus(true, "other");
  controlStatus(true, kOwnId);
  controlStatus(false, "");
  EXPECT_EQ(client->getState(), 1U);
  EXPECT_EQ(client->getLastError(), 0U);
  EXPECT_THAT(notifications.take(), IsEmpty());
}

TEST_F(Lease, ReleaseGivesTheControllerIdBackOneWay) {
  hold();
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(0);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 0)));
  const auto release = bus.requests("releaseMotionControl");
  ASSERT_THAT(release, SizeIs(1));
  EXPECT_TRUE(release[0].oneWay);
  EXPECT_EQ(release[0].document, object({{"call", object({{"clientId", "controller-1"}})}}));
  EXPECT_THAT(log.client(1, "released"), ElementsAre("motion controller released to kConnected\n"));

  bus.forgetRequests();
  clock.advance(120'000);
  EXPECT_THAT(bus.requests(), IsEmpty());
  EXPECT_TRUE(client->disconnect());
  EXPECT_THAT(bus.requests("releaseMotionControl"), IsEmpty()) << "given back already";
}

TEST_F(Lease, ReleaseSucceedsThoughItsRequestFails) {
  hold();
  robot.on("releaseMotionControl", transportFailure(7));
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(0);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 0)));
  EXPECT_EQ(client->getLastError(), 3U);
  EXPECT_THAT(log.client(4), ElementsAre("high level sendAction robotAppService::"
                                         "releaseMotionControl failed: scripted failure\n"));
  EXPECT_THAT(log.client(3), ElementsAre(" release motion control failed (best-effort), "
                                         "controller=controller-1\n"));
}

TEST_F(Lease, PreemptionDuringTheReleaseDoesNotStick) {
  hold();
  robot.on("releaseMotionControl", [this](const Request&) {
    bus.inject(kServer, kStatusTopic, object({{"controlled", true}, {"controller", "other"}}));
    return accepted();
  });
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(0);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 5))) << "one end, one notification";
  ASSERT_TRUE(client->takeMotionControl(0));
  clock.advance(3000);
  EXPECT_EQ(client->getState(), 2U);
}

TEST_F(Lease, TheServersWordOnOurOwnReleaseIsNoLoss) {
  hold();
  robot.on("releaseMotionControl", [this](const Request&) {
    bus.inject(kServer, kStatusTopic, object({{"controlled", false}}));
    return accepted();
  });
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(0);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 0)));
  EXPECT_EQ(client->getLastError(), 0U);
}

TEST_F(Lease, WishesInTheWrongStateAreRefused) {
  EXPECT_FALSE(client->takeMotionControl(1000));
  EXPECT_EQ(client->getLastError(), 6U);
  EXPECT_FALSE(client->releaseMotionControl());
  EXPECT_EQ(client->getLastError(), 7U);
  connect();
  EXPECT_FALSE(client->releaseMotionControl());
  EXPECT_EQ(client->getLastError(), 7U);
  ASSERT_TRUE(client->disconnect());
  EXPECT_FALSE(client->takeMotionControl(1000));
  EXPECT_EQ(client->getLastError(), 6U);
}

TEST_F(Lease, DeadlineThatNothingCanActOnKeepsTheWorkerAsleep) {
  hold();
  const auto begin = now();
  ASSERT_TRUE(client->takeMotionControl(1)) << "while controlling";
  clock.advance(60'000);
  EXPECT_THAT(times("renewMotionControl", begin),
              ElementsAre(10'000, 20'000, 30'000, 40'000, 50'000, 60'000));
  ASSERT_TRUE(client->releaseMotionControl());
  clock.advance(60'000);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 0)));

  robot.on("setMotionMasterRole", refused());
  ASSERT_TRUE(client->takeMotionControl(500)) << "passes before the first retry";
  clock.advance(999);
  EXPECT_THAT(notifications.take(), IsEmpty());
  clock.advance(1);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 2)));
}

TEST_F(Lease, SecondTakeMovesTheDeadline) {
  robot.on("setMotionMasterRole", refused());
  connect();
  ASSERT_TRUE(client->takeMotionControl(2000));
  clock.advance(1500);
  ASSERT_TRUE(client->takeMotionControl(5000));
  clock.advance(5499);  // the next retry is due half a second after the deadline
  EXPECT_THAT(notifications.take(), IsEmpty());
  clock.advance(1);
  EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 2)));
}

/// The board's client has no source of observed state yet: it keeps trying every 2 s, asks for
/// nothing, and gives up at the deadline.
TEST_F(Lease, WithoutItsObservedSourceTheBoardClientOnlyRetries) {
  for (const bool asMaster : {true, false}) {
    client = orvane::RobotSdk::makeBoardHighLevelClient(asMaster);
    client->setConnectCallback(
        [this](std::uint32_t state, std::uint32_t code) { notifications.add(state, code); });
    connect();
    ASSERT_TRUE(client->takeMotionControl(3000));
    clock.advance(3999);
    EXPECT_THAT(notifications.take(), IsEmpty());
    clock.advance(1);
    EXPECT_THAT(notifications.take(), ElementsAre(Pair(1, 2)));
    EXPECT_THAT(bus.requests(), IsEmpty());
  }
}

}  // namespace
