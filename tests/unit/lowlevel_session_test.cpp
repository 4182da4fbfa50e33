// The work-mode session: its states, what each event does in each of them, and when.

#include <stdexcept>

#include "lowlevel/MotionChannels.h"
#include "lowlevel_support.h"

namespace lowlevel_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kRefusal[] =
    "rpc call motionService::setMotionMasterRole failed, errno=0x0 reason=\n";

// --- the table: what an event does in a state ---

struct Row {
  State from;
  const char* event;
  State to;
  const char* told = "";
  std::uint32_t error = 0;
  const char* sent = "";
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
  return out << row.from << ", " << row.event;
}

const Row kTable[] = {
    {kDisconnected, "connect", kConnected, "2:0", 0, "setMotionMasterRole takeWorkModeSession"},
    {kDisconnected, "connect without a server", kDisconnected, "", 1},
    {kDisconnected, "disconnect", kDisconnected},
    {kDisconnected, "enable", kDisconnected},
    {kDisconnected, "disable", kDisconnected},

    {kConnecting, "connect", kConnecting},
    {kConnecting, "disconnect", kDisconnected},
    {kConnecting, "enable", kConnecting, "1:11", 11, "setMotionMasterRole"},
    {kConnecting, "disable", kConnecting, "1:11", 11, "setMotionMasterRole"},
    {kConnecting, "role unanswered", kConnecting, "1:11", 11, "setMotionMasterRole"},
    {kConnecting, "server recovers", kConnected, "2:0", 0,
     "setMotionMasterRole takeWorkModeSession"},
    {kConnecting, "take refused", kConnecting, "1:2", 2, "setMotionMasterRole takeWorkModeSession"},
    {kConnecting, "take without a number", kConnecting, "1:2", 2,
     "setMotionMasterRole takeWorkModeSession"},
    {kConnecting, "no observed buffer", kConnecting, "1:1", 1,
     "setMotionMasterRole takeWorkModeSession releaseWorkModeSession"},
    {kConnecting, "no sensor buffer", kConnecting, "1:1", 1,
     "setMotionMasterRole takeWorkModeSession releaseWorkModeSession"},
    {kConnecting, "no control channel", kConnecting, "1:1", 1,
     "setMotionMasterRole takeWorkModeSession releaseWorkModeSession"},

    {kConnected, "connect", kConnected},
    {kConnected, "disconnect", kDisconnected, "", 0, "releaseWorkModeSession"},
    {kConnected, "enable", kPrepared, "3:0", 0, "setMotionPrepare"},
    {kConnected, "disable", kConnected},
    {kConnected, "20 s", kConnected, "", 0, "renewWorkModeSession"},
    {kConnected, "renewal refused", kConnected, "", 4, "renewWorkModeSession"},
    {kConnected, "renewal unanswered", kConnected, "", 4, "renewWorkModeSession"},
    {kConnected, "renewal says invalid", kConnected, "4:4 2:0", 4,
     "renewWorkModeSession releaseWorkModeSession setMotionMasterRole takeWorkModeSession"},
    {kConnected, "enable, not ready", kConnected, "", 0, "setMotionPrepare"},
    {kConnected, "enable refused", kConnected, "", 0, "setMotionPrepare"},
    {kConnected, "enable unanswered", kConnected, "", 0, "setMotionPrepare"},
    {kConnected, "enable says invalid once", kPrepared, "4:4 2:0 3:0", 4,
     "setMotionPrepare releaseWorkModeSession setMotionMasterRole takeWorkModeSession "
     "setMotionPrepare"},

    {kPrepared, "connect", kPrepared},
    {kPrepared, "disconnect", kDisconnected, "", 0, "releaseWorkModeSession"},
    {kPrepared, "enable", kPrepared},
    {kPrepared, "disable", kConnected, "2:0", 0, "setMotionPrepare"},
    {kPrepared, "20 s", kPrepared, "", 0, "renewWorkModeSession"},
    {kPrepared, "renewal refused", kPrepared, "", 4, "renewWorkModeSession"},
    {kPrepared, "renewal unanswered", kPrepared, "", 4, "renewWorkModeSession"},
    {kPrepared, "renewal says invalid", kPrepared, "4:4 2:0 3:0", 4,
     "renewWorkModeSession releaseWorkModeSession setMotionMasterRole takeWorkModeSession "
     "setMotionPrepare"},
    {kPrepared, "disable, not ready", kPrepared, "", 0, "setMotionPrepare"},
    {kPrepared, "disable refused", kPrepared, "", 0, "setMotionPrepare"},
    {kPrepared, "disable unanswered", kPrepared, "", 0, "setMotionPrepare"},
    {kPrepared, "disable says invalid once", kConnected, "4:4 2:0", 4,
     "setMotionPrepare releaseWorkModeSession setMotionMasterRole takeWorkModeSession"},

    {kSessionLost, "connect", kSessionLost},
    {kSessionLost, "disconnect", kDisconnected},
    {kSessionLost, "enable", kSessionLost, "4:11", 11, "setMotionMasterRole"},
    {kSessionLost, "disable", kSessionLost, "4:11", 11, "setMotionMasterRole"},
    {kSessionLost, "role unanswered", kSessionLost, "4:11", 11, "setMotionMasterRole"},
    {kSessionLost, "take refused", kSessionLost, "4:2", 2,
     "setMotionMasterRole takeWorkModeSession"},
    {kSessionLost, "take without a number", kSessionLost, "4:2", 2,
     "setMotionMasterRole takeWorkModeSession"},
    {kSessionLost, "server recovers", kConnected, "2:0", 0,
     "setMotionMasterRole takeWorkModeSession"},
};

struct Missing {
  const char* event;
  const char* path;  // null: it is there, and another's
  const char* line;
};

constexpr Missing kMissing[] = {{"no observed buffer", "/dev/shm/orvane.motion_observed",
                                 "open motion_observed reader failed\n"},
                                {"no sensor buffer", "/dev/shm/orvane.motion_sensor_observed",
                                 "open motion_sensor_observed reader failed\n"},
                                {"no control channel", nullptr,
                                 "local low level client open share motion ctrl writer failed\n"}};

class LowLevelState : public LowLevelTest, public testing::WithParamInterface<Row> {
 protected:
  void bringInto(State state) {
    if (state == kConnected || state == kSessionLost) connectLow();
    if (state == kPrepared) prepare();
    if (state == kConnecting || state == kSessionLost) {
      robot.on("setMotionMasterRole", refused());
      robot.on("renewWorkModeSession", sessionInvalid());
      static_cast<void>(low->connect(500, kLeaseMs));
      clock.advance(state == kConnecting ? 0 : kRenewMs);
      robot.on("renewWorkModeSession", accepted());
    }
    ASSERT_EQ(low->getState(), state);
    static_cast<void>(told() + sent());
    static_cast<void>(lowError());
  }
  void make(const std::string& event) {
    if (event == "connect") {
      EXPECT_TRUE(low->connect(100, 900));
    }
    if (event == "connect without a server") {
      bus.behave({.rpc = false});
      EXPECT_FALSE(low->connect(100, 900));
    }
    if (event == "disconnect") {
      EXPECT_TRUE(low->disconnect());
    }
    if (event == "20 s") clock.advance(kRenewMs);
    if (event == "server recovers") serve();
    if (event.starts_with("take ")) {
      robot.on("setMotionMasterRole", accepted());
      robot.on("takeWorkModeSession",
               event == "take refused" ? refused() : accepted(object({{"sessionId", "a"}})));
    }
    if (event == "role unanswered") robot.on("setMotionMasterRole", transportFailure(1));
    for (const Missing& missing : kMissing) {
      if (event == missing.event) attemptWithout(missing);
    }
    if (GetParam().from == kConnecting || GetParam().from == kSessionLost) wakeAfterBackoff(event);
    if (event.starts_with("renewal ")) {
      robot.on("renewWorkModeSession", failure(event));
      clock.advance(kRenewMs);
    }
    if (event.starts_with("enable") || event.starts_with("disable")) turn(event);
  }
  void wakeAfterBackoff(const std::string& event) {
    if (event.starts_with("take ") || event.starts_with("role ") || event == "server recovers") {
      clock.advance(3000);
    }
  }
  void attemptWithout(const Missing& missing) {
    serve();
    if (missing.path == nullptr) {
      EXPECT_TRUE(rival.open());
    } else {
      EXPECT_EQ(std::remove(missing.path), 0);
    }
    clock.advance(3000);
    EXPECT_EQ(lines(4).back(), missing.line);
  }
  static Reply failure(const std::string& event) {
    if (event.ends_with("not ready")) return ready(false);
    if (event.ends_with("unanswered")) return transportFailure(1);
    return event.ends_with("refused") ? refused(7) : sessionInvalid();
  }
  void turn(const std::string& event) {
    if (event.find(' ') != std::string::npos) {
      const bool once = event.ends_with("once");
      robot.on("setMotionPrepare", [this, once, reply = failure(event)](const Request&) {
        if (once) serve();
        return reply;
      });
    }
    EXPECT_TRUE(low->setSessionFlag(event.starts_with("enable")));
  }
  MotionChannels rival;
};

TEST_P(LowLevelState, Event) {
  const Row& row = GetParam();
  bringInto(row.from);
  if (HasFatalFailure()) return;
  make(row.event);
  EXPECT_EQ(told(), row.told);
  EXPECT_EQ(low->getState(), row.to);
  EXPECT_EQ(lowError(), row.error);
  EXPECT_EQ(lowError(), 0U) << "read and reset";
  EXPECT_EQ(sent(), row.sent);
  if (row.to != kConnecting && row.to != kSessionLost) return;
  serve();
  clock.advance(3000);
  const auto takes = bus.requests("takeWorkModeSession");
  ASSERT_THAT(takes, SizeIs(1));
  const Json::Value& wished = takes[0].document["params"];
  EXPECT_EQ(wished["observedHz"].asUInt(), 500U) << "as in the connect that began it";
  EXPECT_EQ(wished["leaseTimeout"].asUInt(), kLeaseMs);
}

INSTANTIATE_TEST_SUITE_P(Table, LowLevelState, testing::ValuesIn(kTable), [](const auto& row) {
  std::string name = std::to_string(row.param.from) + "_" + row.param.event;
  for (char& letter : name) {
    if (std::isalnum(static_cast<unsigned char>(letter)) == 0) letter = '_';
  }
  return name;
});

class LowLevelSession : public LowLevelTest {};

// --- what is sent ---

TEST_F(LowLevelSession, SendsTheseDocuments) {
  robot.on("takeWorkModeSession", accepted(object({{"sessionId", Json::UInt64{0xFFFFFFFFFFFFFFFF}},
                                                   {"observedHz", 250},
                                                   {"leaseTimeout", 1800}})));
  ASSERT_TRUE(low->connect(1000, 900));
  clock.advance(600);
  ASSERT_TRUE(low->setSessionFlag(true));
  clock.advance(0);
  EXPECT_TRUE(low->emergencyStop(77));
  ASSERT_TRUE(low->setSessionFlag(false));
  clock.advance(0);
  EXPECT_TRUE(low->restoreMotionControlMode(88));
  robot.on("renewWorkModeSession", sessionInvalid());
  clock.advance(600);
  low->disconnect();

  const auto token = bus.requests("takeWorkModeSession").at(0).document["params"]["takeToken"];
  EXPECT_EQ(token.asString().size(), 36U);
  const auto line = [](const Request& request) {
    return request.server + '/' + request.service + ' ' + request.method + ' ' +
           (request.oneWay ? "-" : std::to_string(request.timeoutMs)) + ' ' +
           text(request.document["params"]) + request.deviceId;
  };
  Texts all;
  for (const Request& request : bus.requests()) {
    EXPECT_EQ(text(request.document["call"]), R"({"clientId":"unitTest"})");
    all.push_back(line(request));
  }
  const std::string motionServer = "motionServer/motionService ";
  const std::string id = R"("sessionId":18446744073709551615})";
  const auto take = [&](const char* hz) {
    return motionServer + R"(takeWorkModeSession 5000 {"leaseTimeout":900,"observedHz":)" + hz +
           R"(,"shmMode":true,"takeToken":)" + text(token) + R"(,"workMode":"lowLevel"})";
  };
  const std::string role = motionServer + "setMotionMasterRole 10000 null";
  const std::string renew = motionServer + "renewWorkModeSession 5000 {" + id;
  const std::string release = motionServer + "releaseWorkModeSession - {" + id;
  EXPECT_THAT(
      all, ElementsAre(role, take("1000"), renew,
                       motionServer + R"(setMotionPrepare 5000 {"enable":true,)" + id,
                       motionServer + "emergencyStop 77 {" + id,
                       motionServer + R"(setMotionPrepare 5000 {"enable":false,)" + id,
                       "cerebellumServer/robotAppService restoreMotionControlMode 88 {" + id, renew,
                       release, role, take("250"), release));
  EXPECT_THAT(lines(1, "connected: s").at(0),
              "local low level connected: sessionId=18446744073709551615 observedHz=250 "
              "leaseTimeout=1800\n");
}

TEST_F(LowLevelSession, FailedRequestsAreLoggedInTheWordsOfTheirServer) {
  MotorLayout layout;
  EXPECT_FALSE(low->getMotorLayout(&layout, 10)) << "never connected";
  connectLow();
  struct Case {
    Reply reply;
    const char* words;
  };
  const Case cases[] = {
      {transportFailure(1), "failed: scripted time-out\n"},
      {refused(0x1F), "failed, errno=0x1f reason=\n"},
      {Reply{object({{"reason", "no"}}), 0, 3, 0}, "failed, errno=0x3 reason=no\n"},
      {Reply{object({{"result", "true"}, {"reason", 5}}), 0, 0, 0}, "failed, errno=0x0 reason=\n"},
      {Reply{Json::Value(Json::arrayValue), 0, 0, 0}, "failed, errno=0x0 reason=\n"}};
  log.take();
  Texts wanted;
  for (const auto& [reply, words] : cases) {
    robot.on("getMotorLayout", reply);
    robot.on("restoreMotionControlMode", reply);
    EXPECT_FALSE(low->getMotorLayout(&layout, 10));
    EXPECT_EQ(lowError(), 0U);
    EXPECT_FALSE(low->restoreMotionControlMode(10));
    EXPECT_EQ(lowError(), 7U);
    const std::string motionWords = reply.status != 0 ? "motion " : "";
    wanted.push_back(motionWords + "rpc call motionService::getMotorLayout " + words);
    wanted.push_back("cerebellum rpc call robotAppService::restoreMotionControlMode " +
                     std::string(words));
  }
  EXPECT_EQ(lines(4), wanted);
  log.take();
  bus.behave({.rpc = false});
  EXPECT_FALSE(low->restoreMotionControlMode(10));
  robot.on("releaseWorkModeSession", transportFailure(1));
  low->disconnect();
  EXPECT_FALSE(low->connect(1, 1));
  EXPECT_FALSE(low->getMotorLayout(&layout, 10));
  EXPECT_THAT(
      lines(4),
      ElementsAre("low level cerebellum rpc call robotAppService::restoreMotionControlMode failed, "
                  "errno=0x19\n",
                  "motion rpc sendAction motionService::releaseWorkModeSession failed: scripted "
                  "time-out\n",
                  "shm low level motion connect failed: motionServer rpc client unavailable\n",
                  "low level rpc call motionService::getMotorLayout failed, errno=0x19\n"));
}

TEST_F(LowLevelSession, TheMotorLayoutIsAskedForUntilItWasGiven) {
  connectLow();
  bus.forgetRequests();
  MotorLayout layout{};
  EXPECT_FALSE(low->getMotorLayout(nullptr, 10));
  EXPECT_EQ(lowError(), 10U);
  robot.on("getMotorLayout", accepted(object({{"motorNum", 17}})));
  EXPECT_FALSE(low->getMotorLayout(&layout, 10));
  Json::Value motor = object({{"limbNo", 2}, {"jointNo", 1}, {"name", "thigh"}});
  Json::Value all(Json::arrayValue);
  all.append(motor);
  robot.on("getMotorLayout", accepted(object({{"motorNum", 1}, {"motors", all}})));
  for (int i = 0; i < 3; ++i) {
    layout = {};
    EXPECT_TRUE(low->getMotorLayout(&layout, 10));
    EXPECT_EQ(layout.motorNum, 1U);
    EXPECT_STREQ(layout.motors[0].name, "thigh");
    if (i == 1) low->disconnect();
  }
  EXPECT_THAT(bus.requests("getMotorLayout"), SizeIs(2));
}

// --- when ---

TEST_F(LowLevelSession, RenewsAtAThirdOfTheLeaseAtTheNextPass) {
  struct Case {
    const char* settings;
    Json::Value granted;
    std::uint64_t first;
    std::uint64_t second;
  };
  const Case cases[] = {{"", 60000, 20000, 40000},
                        {"", 1500, 600, 1200},  // 500, looked at each 200 ms
                        {"", 1499, 600, 1200},
                        {"", 1200, 600, 1200},
                        {"", 1803, 800, 1600},  // 601
                        {"", "900", 20000, 40000},
                        {"", Json::Value(), 20000, 40000},
                        {R"("leaseTimeout": 3000)", Json::Value(), 1000, 2000},
                        {R"("leaseTimeout": 3000)", 6000, 2000, 4000},
                        {R"("leaseTimeout": "x")", Json::Value(), 20000, 40000},
                        {R"("renewInterval": 4000)", 60000, 4000, 8000},
                        {R"("renewInterval": -1)", 60000, 20000, 40000}};
  for (const auto& [settings, granted, first, second] : cases) {
    SCOPED_TRACE(settings + text(granted));
    configure(std::string(R"({"lowLevel": {)") + settings + "}}");
    robot.on("takeWorkModeSession",
             accepted(object({{"sessionId", 1}, {"leaseTimeout", granted}})));
    connectLow();
    const auto begin = now();
    bus.forgetRequests();
    clock.advance(static_cast<std::uint32_t>(second));
    EXPECT_THAT(times("renewWorkModeSession", begin), ElementsAre(first, second));
    low->disconnect();
  }
}

TEST_F(LowLevelSession, AFailedRenewalIsTriedAgainAtEachPassUntilItSucceeds) {
  connectLow();
  const auto begin = now();
  robot.on("renewWorkModeSession", refused());
  clock.advance(kRenewMs + 250);
  EXPECT_EQ(lowError(), 4U);
  clock.advance(100);
  EXPECT_EQ(lowError(), 0U);
  clock.advance(100);
  EXPECT_EQ(lowError(), 4U);
  serve();
  clock.advance(kRenewMs + 150);
  EXPECT_THAT(times("renewWorkModeSession", begin), ElementsAre(20000, 20200, 20400, 20600, 40600));
  EXPECT_EQ(told(), "");
  robot.on("renewWorkModeSession", sessionInvalid());
  clock.advance(kRenewMs);
  EXPECT_THAT(lines(4, "low level renew"),
              ElementsAre("local low level renew rejected by server (sessionInvalid), sid=1001\n"));
}

TEST_F(LowLevelSession, ADriveThatIsNotReadyIsAskedEachSecondAndToldEachFive) {
  connectLow();
  for (const bool enable : {true, false}) {
    bus.forgetRequests();
    log.take();
    robot.on("setMotionPrepare", ready(false));
    const auto begin = now();
    ASSERT_TRUE(low->setSessionFlag(enable));
    clock.advance(11'100);
    auto asked = times("setMotionPrepare", begin);
    ASSERT_THAT(asked, SizeIs(12));
    for (std::size_t i = 0; i < asked.size(); ++i) EXPECT_EQ(asked[i], i * 1000);
    EXPECT_THAT(lines(3), testing::AllOf(SizeIs(3),
                                         testing::Each(std::string(" motion server switching to ") +
                                                       (enable ? "enable" : "disable") +
                                                       " not ready, still waiting...\n")));
    EXPECT_EQ(told(), "");
    serve();
    clock.advance(1000);
    EXPECT_EQ(told(), enable ? "3:0" : "2:0");
    EXPECT_THAT(lines(1, "transitioned"),
                ElementsAre(std::string("local low level state transitioned to ") +
                            (enable ? "kPrepared\n" : "kConnected\n")));
  }
}

TEST_F(LowLevelSession, ThePauseOfADriveEndsWithTheSession) {
  connectLow();
  clock.advance(kRenewMs - 300);
  const auto begin = now();
  robot.on("setMotionPrepare", ready(false));
  robot.on("renewWorkModeSession", sessionInvalid());
  ASSERT_TRUE(low->setSessionFlag(true));
  clock.advance(500);
  EXPECT_EQ(told(), "4:4 2:0");
  EXPECT_THAT(times("setMotionPrepare", begin), ElementsAre(0, 400));
  EXPECT_THAT(lines(3, "still waiting"), SizeIs(2));
}

TEST_F(LowLevelSession, AFailedDriveRequestIsRepeatedAfterTwoSeconds) {
  connectLow();
  robot.on("setMotionPrepare", transportFailure(1));
  const auto begin = now();
  ASSERT_TRUE(low->setSessionFlag(true));
  clock.advance(4100);
  EXPECT_THAT(times("setMotionPrepare", begin), ElementsAre(0, 2000, 4000));
  EXPECT_THAT(lines(3),
              testing::AllOf(SizeIs(3),
                             testing::Each(std::string(
                                 " local low level driveMotionEnable RPC failed (transient), retry "
                                 "after 2000ms\n"))));
}

/// Nor does a state callback that is never content change that: neither when the drive can't be
/// switched on, nor when it can't be switched off.
TEST_F(LowLevelSession, ARobotThatGrantsAndDeniesIsNotAskedWithoutEnd) {
  for (const bool denied : {true, false}) {
    robot.on("setMotionPrepare", [denied](const Request& request) {
      return request.document["params"]["enable"].asBool() == denied ? sessionInvalid()
                                                                     : ready(true);
    });
    low->setStateCallback([&](std::uint32_t state, std::uint32_t) {
      EXPECT_TRUE(low->setSessionFlag(state != kPrepared));
    });
    bus.forgetRequests();
    const auto begin = now();
    ASSERT_TRUE(low->connect(500, kLeaseMs));
    clock.advance(500);
    EXPECT_THAT(times("takeWorkModeSession", begin), ElementsAre(0, 0, 200, 400));
    ASSERT_TRUE(low->disconnect());
  }
  EXPECT_EQ(lines(4, "setMotionPrepare rejected").at(0),
            "setMotionPrepare rejected by server (sessionInvalid), sid=1001\n");
}

/// Until they are woken; what the state callback asks for while it is told of one wakes nobody.
TEST_F(LowLevelSession, AttemptsRestInBetween) {
  low->setStateCallback([this](std::uint32_t state, std::uint32_t code) {
    note(state, code);
    EXPECT_TRUE(low->setSessionFlag(false));
  });
  for (const auto& [settings, pause] : {std::pair("{}", 3000U),
                                        {R"({"lowLevel": {"reconnectBackoff": 700}})", 700U},
                                        {R"({"lowLevel": {"reconnectBackoff": 0}})", 200U},
                                        {R"({"lowLevel": []})", 3000U},
                                        {R"({"lowLevel": {"reconnectBackoff": 1.5}})", 3000U}}) {
    configure(settings);
    robot.on("setMotionMasterRole", refused());
    bus.forgetRequests();
    const auto begin = now();
    ASSERT_TRUE(low->connect(500, 0));
    clock.advance(2 * pause + 1);
    EXPECT_THAT(times("setMotionMasterRole", begin), ElementsAre(0, pause, 2 * pause));
    EXPECT_EQ(told(), "1:11 1:11 1:11");
    ASSERT_TRUE(low->setSessionFlag(false));
    EXPECT_EQ(told(), "1:11") << "woken";
    EXPECT_THAT(lines(4, kRefusal), testing::Not(IsEmpty()));
    ASSERT_TRUE(low->disconnect());
  }
}

// --- beginnings and ends ---

TEST_F(LowLevelSession, AWishAndAnErrorEndWithTheirConnection) {
  prepare();
  EXPECT_FALSE(low->restoreMotionControlMode(10));
  low->disconnect();
  EXPECT_EQ(lowError(), 0U);
  EXPECT_FALSE(low->requireObserved(nullptr, 0));
  EXPECT_TRUE(low->setSessionFlag(true)) << "nothing happens";
  connectLow();
  EXPECT_EQ(lowError(), 0U);
  clock.advance(1000);
  EXPECT_EQ(low->getState(), kConnected);
  EXPECT_EQ(told(), "");
  low->disconnect();
  EXPECT_THAT(lines(1, "low level client disconnected"), SizeIs(2));
  EXPECT_THAT(lines(1, "channels opened"), SizeIs(2));
  EXPECT_EQ(lines(1, "worker started...").size(), lines(1, "worker stopped...").size());
}

/// In whichever request the worker is, what comes of it is given back and nobody hears.
TEST_F(LowLevelSession, WhatIsUnderWayAtDisconnectHasNoEffect) {
  for (const char* method : {"setMotionMasterRole", "takeWorkModeSession", "setMotionPrepare"}) {
    SCOPED_TRACE(method);
    for (const bool fails : {false, true}) {
      serve();
      robot.on(method, [this, fails, method](const Request&) {
        const bool isTake = std::string("takeWorkModeSession") == method;
        Reply reply = fails ? sessionInvalid() : isTake ? accepted(grant()) : ready(true);
        reply.takesMs = 3000;
        return reply;
      });
      bus.forgetRequests();
      ASSERT_TRUE(low->connect(500, 0));
      ASSERT_TRUE(low->setSessionFlag(true));
      clock.advance(1000);
      static_cast<void>(told());
      const auto begin = now();
      ASSERT_TRUE(low->disconnect());
      EXPECT_NEAR(static_cast<double>(now() - begin), 2000, 2) << "the request's own time";
      EXPECT_EQ(told(), "");
      EXPECT_EQ(low->getState(), kDisconnected);
      EXPECT_EQ(lowError(), 0U);
      const auto taken = bus.requests("takeWorkModeSession").size();
      const bool isGranted = !fails || std::string("setMotionPrepare") == method;
      EXPECT_EQ(bus.requests("releaseWorkModeSession").size(), isGranted ? taken : 0);
    }
  }
}

TEST_F(LowLevelSession, TheStateCallbackMayDisconnectReconnectAndReplaceItself) {
  for (const bool reconnects : {false, true}) {
    robot.on("setMotionPrepare", ready(true));
    low->setStateCallback([&](std::uint32_t state, std::uint32_t code) {
      note(state, code);
      if (state != kPrepared) return;
      const auto begin = now();
      EXPECT_TRUE(low->disconnect());
      if (reconnects) {
        EXPECT_TRUE(low->connect(500, 0));
        EXPECT_TRUE(low->disconnect());
        EXPECT_TRUE(low->connect(500, 0));
        EXPECT_EQ(low->getState(), kConnecting);
      }
      EXPECT_EQ(now(), begin);
      low->setStateCallback([this](std::uint32_t then, std::uint32_t) { note(then, 99); });
    });
    bus.forgetRequests();
    ASSERT_TRUE(low->connect(500, 0));
    ASSERT_TRUE(low->setSessionFlag(true));
    EXPECT_EQ(told(), reconnects ? "2:0 3:0 2:99" : "2:0 3:0");
    EXPECT_EQ(low->getState(), reconnects ? kConnected : kDisconnected);
    EXPECT_THAT(bus.requests("releaseWorkModeSession"), SizeIs(1)) << "the first session";
    EXPECT_THAT(bus.requests("takeWorkModeSession"), SizeIs(reconnects ? 2 : 1));
    ASSERT_TRUE(low->disconnect());
  }
}

TEST_F(LowLevelSession, ACallbackThatThrowsHarmsNobodyAndAnEmptyOneIsNobody) {
  low->setStateCallback([this](std::uint32_t state, std::uint32_t code) {
    note(state, code);
    throw std::runtime_error("application error");
  });
  prepare();
  low->setStateCallback({});
  ASSERT_TRUE(low->setSessionFlag(false));
  EXPECT_EQ(told(), "");
  EXPECT_EQ(low->getState(), kConnected);
}

/// By the application, by its callback, and by a callback that owns the last reference.
TEST_F(LowLevelSession, TheReleaseOfTheLastReferenceDisconnects) {
  enum class Where { kApplication, kCallback, kCallbackItself };
  for (const Where where : {Where::kApplication, Where::kCallback, Where::kCallbackItself}) {
    bus.forgetRequests();
    low = makeLocalLowLevelClient();
    const std::weak_ptr<IMotionLowLevelClient> handle = low;
    auto* const face = low.get();
    if (where == Where::kCallback) {
      low->setStateCallback([this](std::uint32_t, std::uint32_t) { low.reset(); });
    } else if (where == Where::kCallbackItself) {
      // Frees this function, and with it the client, when it returns.
      low->setStateCallback([held = low, face](auto, auto) { face->setStateCallback({}); });
      low.reset();
    }
    ASSERT_TRUE(face->connect(500, 0));
    clock.advance(0);
    if (where == Where::kApplication) low.reset();
    clock.advance(0);
    EXPECT_TRUE(handle.expired());
    EXPECT_THAT(bus.requests("releaseWorkModeSession"), SizeIs(1));
    EXPECT_THAT(lines(1, "worker stopped"), SizeIs(static_cast<int>(where) + 1));
  }
}

/// Whatever they do to each other, each session that was taken is given back, each worker ends, and
/// the client is as good as new.
TEST_F(LowLevelSession, ManyThreadsMayUseItAtOnceAndTheLastOneReleasesIt) {
  using Handle = std::shared_ptr<IMotionLowLevelClient>;
  using Act = void (*)(const Handle&, int);
  constexpr Act kActs[] = {
      [](const Handle& it, int i) { EXPECT_TRUE(it->connect(500, i % 2 == 0 ? 0 : kLeaseMs)); },
      [](const Handle& it, int) { EXPECT_TRUE(it->disconnect()); },
      [](const Handle& it, int i) { EXPECT_TRUE(it->setSessionFlag(i % 3 == 0)); },
      [](const Handle& it, int i) {
        it->setStateCallback([i, mine = std::weak_ptr(it)](std::uint32_t state, std::uint32_t) {
          const Handle alive = mine.lock();
          if (alive != nullptr && state == kPrepared && i % 4 == 0) {
            EXPECT_TRUE(alive->disconnect() && alive->connect(500, 0));
          }
        });
      },
      [](const Handle& it, int i) {
        ObservedMotionRecord observed;
        static_cast<void>(it->requireObserved(&observed, static_cast<std::uint32_t>(i % 2)));
        const LowLevelMotorRecord command = motors(12);
        static_cast<void>(it->publishMotorAction(&command, nullptr));
      }};
  std::atomic<bool> over{false};
  std::atomic<int> running{0};
  std::vector<std::thread> threads;
  for (const Act act : kActs) {
    ++running;
    threads.emplace_back([&over, &running, act, held = low]() mutable {
      for (int i = 0; !over; ++i) act(held, i);
      held.reset();
      --running;
    });
  }
  low.reset();
  const auto count = [this](const char* part) { return lines(1, part).size(); };
  EXPECT_TRUE(until([&] { return count("connected: s") > 50; }));
  over = true;
  EXPECT_TRUE(until(
      [&] { return running == 0 && count("worker started...") == count("worker stopped..."); }));
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(bus.requests("releaseWorkModeSession"), SizeIs(count("connected: s")));
  static_cast<void>(told());
  low = listenedLow(makeLocalLowLevelClient());
  prepare();
}

TEST_F(LowLevelSession, AMediaBusNeedsAConnection) {
  EXPECT_EQ(low->createMediaBusClient(), nullptr);
  EXPECT_THAT(lines(4), ElementsAre("low level createMediaBusClient failed: not connected\n"));
  connectLow();
  EXPECT_EQ(low->createMediaBusClient(), nullptr);
  EXPECT_THAT(lines(4), SizeIs(1));
  EXPECT_THAT(log.texts(4, "ServiceAccess"), SizeIs(1));
}

}  // namespace
}  // namespace lowlevel_test
