// The envelope of every request, and the motion commands and queries that are made in it.

#include <cmath>
#include <limits>

#include "highlevel/MotionControlBackEnd.h"
#include "highlevel/MotionHighLevelClientImpl.h"
#include "highlevel/RpcEnvelope.h"
#include "msg/MotionTypes.h"
#include "pbase/Utils.h"
#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using namespace orvane::RobotSdk;
using Kind = MotionHighLevelClientImpl::Kind;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Json::Value kNull;
const Json::Value kEmptyObject(Json::objectValue);
const Json::Value kEmptyArray(Json::arrayValue);

class Requests : public ClientTest {
 protected:
  Request last() { return bus.requests().back(); }
};

// --- the envelope ---

TEST(Envelope, EmptyParamsAreLeftOut) {
  const Json::Value bare = object({{"call", object({{"clientId", "me"}})}});
  for (const Json::Value& empty : {kNull, kEmptyObject, kEmptyArray}) {
    EXPECT_EQ(makeRpcRequest("me", empty), bare);
  }
  for (const Json::Value& params :
       {Json::Value(0), Json::Value(""), Json::Value(false), object({{"a", kNull}})}) {
    EXPECT_EQ(makeRpcRequest("me", params)["params"], params);
  }
}

TEST(Envelope, VerdictTakesAnyDocumentAndParamsComeFirst) {
  const Json::Value params = object({{"x", 1}});
  Json::Value deep = 1;
  for (int depth = 0; depth < 1000; ++depth) {
    Json::Value outer;
    outer["d"].swap(deep);
    deep.swap(outer);
  }
  struct Case {
    Json::Value reply;
    bool accepted;
    Json::Value output;
  };
  const auto reply = [&](Json::Value result) {
    return object({{"result", std::move(result)}, {"params", params}});
  };
  const Case cases[] = {{reply(true), true, params},
                        {reply(1), true, params},
                        {reply(0.5), true, params},
                        {object({{"result", true}}), true, kNull},
                        {reply(false), false, params},
                        {reply(0), false, params},
                        {reply(kNull), false, params},
                        {reply("true"), false, params},
                        {reply(kEmptyObject), false, params},
                        {reply(kEmptyArray), false, params},
                        {reply(deep), false, params},
                        {object({{"params", params}}), false, params},
                        {object({{"result", false}}), false, kNull},
                        {object({{"result", true}, {"params", "text"}}), true, "text"},
                        {kEmptyObject, false, kNull},
                        {kNull, false, kNull},
                        {kEmptyArray, false, kNull},
                        {"result", false, kNull},
                        {42, false, kNull}};
  for (const auto& [document, accepted, expected] : cases) {
    Json::Value output = "old";
    EXPECT_EQ(readRpcReply(document, output), accepted);
    EXPECT_EQ(output, expected);
  }
}

TEST_F(Requests, TransportFailureAndRefusalAreToldApart) {
  connect();
  std::string text = "old";
  robot.on("getSystemStatus", transportFailure(1));
  EXPECT_FALSE(client->getSystemStatus(&text, 100));
  EXPECT_EQ(client->getLastError(), 3U);
  robot.on("getSystemStatus", refused(0x2f, object({{"why", "busy"}})));
  EXPECT_FALSE(client->getSystemStatus(&text, 100));
  robot.on("getSystemStatus", accepted(object({{"ok", 1}})));
  EXPECT_EQ(text, "old");
  EXPECT_TRUE(client->getSystemStatus(&text, 100));
  EXPECT_EQ(text, "{\"ok\":1}");
  EXPECT_EQ(client->getLastError(), 9U) << "a later success clears no error";
  EXPECT_EQ(client->getLastError(), 0U);
  EXPECT_THAT(
      log.client(4),
      ElementsAre("high level rpc robotAppService::getSystemStatus failed: scripted time-out\n",
                  "high level rpc robotAppService::getSystemStatus rejected, errno=0x2f\n"));
  EXPECT_EQ(last().deviceId, "dog-7");
  EXPECT_EQ(last().timeoutMs, 100U);
}

// --- the back ends ---

/// Calls through the numbered slot of an object's table, as a caller compiled against the order
/// does.
template <class... Arguments>
bool callSlot(IHighLevelMotionControl& object, std::size_t slot, Arguments... arguments) {
  using Entry = bool (*)(IHighLevelMotionControl*, Arguments...);
  void** const table = *reinterpret_cast<void***>(&object);
  return reinterpret_cast<Entry>(table[slot])(&object, arguments...);
}

Json::Value action(const char* name) {
  return object({{"action", name}});
}

TEST_F(Requests, BackEndKeepsItsSlotsAndSendsTheirRequests) {
  struct Board {
    Kind kind;
    std::shared_ptr<IHighLevelMotionControl> (*make)(std::weak_ptr<MotionHighLevelClientImpl>);
    const char* server;
    const char* master;
  };
  const Board boards[] = {{Kind::kBoardMaster,
                           [](auto owner) -> std::shared_ptr<IHighLevelMotionControl> {
                             return std::make_shared<BrainHighMotionControl>(owner);
                           },
                           "brainServer", "brain"},
                          {Kind::kBoard,
                           [](auto owner) -> std::shared_ptr<IHighLevelMotionControl> {
                             return std::make_shared<CereHighMotionControl>(owner, false);
                           },
                           "cerebellumServer", "cerebellum"},
                          {Kind::kRemote,
                           [](auto owner) -> std::shared_ptr<IHighLevelMotionControl> {
                             return std::make_shared<CereHighMotionControl>(owner, true);
                           },
                           "robotServer", "cerebellum"}};
  for (const Board& board : boards) {
    SCOPED_TRACE(board.server);
    const auto owner = std::make_shared<MotionHighLevelClientImpl>(board.kind, "dog-8");
    const auto made = board.make(owner);
    auto& control = *made;
    bus.forgetRequests();
    EXPECT_FALSE(callSlot(control, 3, 70U)) << "not set up";
    EXPECT_EQ(owner->getLastError(), 1U);
    EXPECT_TRUE(callSlot(control, 0));
    const auto asked = bus.rpcClientsAsked(board.server);
    EXPECT_TRUE(callSlot(control, 0));
    EXPECT_EQ(bus.rpcClientsAsked(board.server), asked);
    EXPECT_THAT(bus.requests(), IsEmpty());

    const auto sent = [&](bool done, const std::string& method, const Json::Value& params) {
      const Request request = last();
      EXPECT_TRUE(done);
      EXPECT_EQ(request.server, board.server);
      EXPECT_EQ(request.service, "robotAppService");
      EXPECT_EQ(request.deviceId, "dog-8");
      EXPECT_EQ(request.timeoutMs, 70U);
      EXPECT_EQ(request.method, method);
      EXPECT_EQ(request.document["params"], params);
    };
    sent(callSlot(control, 2, 70U), "startMotionAction", action("disableAction"));
    sent(callSlot(control, 3, 70U), "startMotionAction", action("standing"));
    sent(callSlot(control, 4, 70U), "startMotionAction", action("laying"));
    sent(callSlot(control, 5, 70U), "stopMotionAction", kNull);
    sent(callSlot(control, 8, 70U), "startMotionAction", action("recoveryStand"));
    sent(callSlot(control, 9, 70U), "emergencyStopMotion", kNull);
    sent(callSlot(control, 10, 70U), "setMotionMasterRole", object({{"master", board.master}}));
    for (const auto& [slot, method] : {std::pair(11, "getMotorLayout"),
                                       {12, "queryMotionState"},
                                       {13, "getMotionCapabilities"}}) {
      robot.on(method, accepted(object({{"of", method}})));
      Json::Value out;
      sent(callSlot<Json::Value&>(control, static_cast<std::size_t>(slot), out, 70U), method,
           kNull);
      EXPECT_EQ(out, object({{"of", method}}));
    }
    Json::Value walk = action("walking");
    walk["params"] = object({{"lineVelocityX", static_cast<double>(0.5F)},
                             {"lineVelocityY", static_cast<double>(-0.2F)},
                             {"velocity", static_cast<double>(0.1F)}});
    sent(callSlot(control, 14, 0.5F, -0.2F, 0.1F, 70U), "startMotionAction", walk);
    const Json::Value params = object({{"gait", "trot"}});
    sent(callSlot<const Json::Value&>(control, 15, params, 70U), "setMotionActionParams", params);
    sent(callSlot<const Json::Value&>(control, 16, params, 70U), "setMotionObservedEnable", params);
    Json::Value custom = action("wave");
    sent(callSlot<const std::string&, const Json::Value&>(control, 17, "wave", kNull, 70U),
         "startMotionAction", custom);
    custom["params"] = kEmptyObject;
    sent(callSlot<const std::string&, const Json::Value&>(control, 17, "wave", kEmptyObject, 70U),
         "startMotionAction", custom);

    EXPECT_TRUE(callSlot(control, 1));
    EXPECT_FALSE(callSlot(control, 5, 70U));
    EXPECT_EQ(owner->getLastError(), 1U);
  }
}

TEST_F(Requests, BackEndTellsFailuresInItsOwnWords) {
  const auto owner = std::make_shared<MotionHighLevelClientImpl>(Kind::kRemote, "dog-8");
  BrainHighMotionControl brain(owner);
  CereHighMotionControl cere(owner, false);
  struct Case {
    IHighLevelMotionControl& control;
    const char* unit;
    std::string words;
    std::string server;
  };
  for (const auto& [control, unit, words, server] :
       {Case{brain, "BrainHighMotionControl", "brain motion", "brainServer"},
        Case{cere, "CereHighMotionControl", "cere motion", "cerebellumServer"}}) {
    bus.setRpcAvailable(false);
    EXPECT_FALSE(control.setup());
    bus.setRpcAvailable(true);
    EXPECT_TRUE(control.setup());
    robot.on("stopMotionAction", transportFailure(2));
    EXPECT_FALSE(control.stopMotionAction(100));
    EXPECT_EQ(owner->getLastError(), 3U);
    robot.on("stopMotionAction", refused(18));
    EXPECT_FALSE(control.stopMotionAction(100));
    EXPECT_EQ(owner->getLastError(), 9U);
    EXPECT_THAT(
        log.texts(4, unit),
        ElementsAre(words + " control setup failed: " + server + " rpc client unavailable\n",
                    words + " rpc robotAppService::stopMotionAction failed: scripted absence\n",
                    words + " rpc robotAppService::stopMotionAction rejected, errno=0x12\n"));
  }
}

TEST_F(Requests, BackEndWithoutItsOwnerFailsSilently) {
  auto owner = std::make_shared<MotionHighLevelClientImpl>(Kind::kRemote, "dog-8");
  CereHighMotionControl control(owner, true);
  ASSERT_TRUE(control.setup());
  owner.reset();
  EXPECT_FALSE(control.standing(100));
  EXPECT_THAT(bus.requests(), IsEmpty());
  EXPECT_THAT(log.texts(4, "CereHighMotionControl"), IsEmpty());
}

/// Shortcuts go through the table: an override of startMotionAction changes them too.
TEST_F(Requests, ShortcutsFollowAnOverrideOfStartMotionAction) {
  class Recording final : public MotionControlBackEnd {
   public:
    Recording() : MotionControlBackEnd({}, {{"Recording", "recording"}, "none", false, "none"}) {}
    bool startMotionAction(const std::string& action, const Json::Value&, std::uint32_t) override {
      actions.push_back(action);
      return true;
    }
    std::vector<std::string> actions;
  } control;
  EXPECT_TRUE(control.disableAction(1) && control.standing(1) && control.laying(1) &&
              control.recoveryStand(1) && control.velocityMove(0, 0, 0, 1));
  EXPECT_THAT(control.actions,
              ElementsAre("disableAction", "standing", "laying", "recoveryStand", "walking"));
}

// --- the public motion operations ---

TEST_F(Requests, MotionCommandsNeedControl) {
  using Command = std::function<bool(IMotionHighLevelClient&)>;
  const Command commands[] = {
      [](auto& c) { return c.stopMotionAction(70); },
      [](auto& c) { return c.emergencyStopMotion(70); },
      [](auto& c) { return c.recoveryStand(70); },
      [](auto& c) { return c.disableAction(70); },
      [](auto& c) { return c.laying(70); },
      [](auto& c) { return c.standing(70); },
      [](auto& c) { return c.velocityMove(1, 2, 3, 70); },
      [](auto& c) { return c.startMotionAction("wave", "not json", 70); },
      [](auto& c) { return c.setMotionActionParams("not json", 70); },
  };
  for (const bool connected : {false, true}) {
    if (connected) connect();
    for (const Command& command : commands) {
      EXPECT_FALSE(command(*client));
      EXPECT_EQ(client->getLastError(), 7U) << "the gate comes before the text";
    }
  }
  EXPECT_THAT(bus.requests(), IsEmpty());
  hold();
  for (std::size_t i = 0; i < std::size(commands); ++i) {
    const bool badText = i >= 7;
    EXPECT_EQ(commands[i](*client), !badText);
    EXPECT_EQ(client->getLastError(), badText ? 10U : 0U);
  }
}

TEST_F(Requests, ActionTextsAreParsedAndParamsNestTwice) {
  hold();
  EXPECT_TRUE(client->startMotionAction("wave", "", 70));
  EXPECT_EQ(last().document["params"], object({{"action", "wave"}, {"params", kEmptyObject}}));
  EXPECT_TRUE(client->startMotionAction("wave", "{\"times\":3}", 70));
  EXPECT_EQ(scripted::text(last().document["params"]["params"]), "{\"times\":3}");
  EXPECT_TRUE(client->startMotionAction("wave", "null", 70));
  EXPECT_EQ(last().document["params"], action("wave"));
  EXPECT_TRUE(client->setMotionActionParams("{\"gait\":\"trot\"}", 70));
  EXPECT_EQ(last().document["params"], object({{"params", object({{"gait", "trot"}})}}));
  EXPECT_TRUE(client->setMotionActionParams("", 70));
  EXPECT_EQ(last().document["params"], object({{"params", kEmptyObject}}));

  const std::string tooDeep = std::string(1000, '[') + std::string(1000, ']');
  bus.forgetRequests();
  for (const std::string& bad : {std::string("{"), std::string("{} x"), tooDeep}) {
    EXPECT_FALSE(client->startMotionAction("wave", bad, 70));
    EXPECT_EQ(client->getLastError(), 10U);
  }
  EXPECT_THAT(bus.requests(), IsEmpty());
}

TEST_F(Requests, VelocitiesPassThroughEvenWhenTheyAreNoNumbers) {
  hold();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_TRUE(client->velocityMove(nan, infinity, -1e30F, 70));
  const Json::Value sent = last().document["params"]["params"];
  EXPECT_TRUE(std::isnan(sent["lineVelocityX"].asDouble()));
  EXPECT_TRUE(std::isinf(sent["lineVelocityY"].asDouble()));
  EXPECT_EQ(sent["velocity"].asDouble(), static_cast<double>(-1e30F));
}

TEST_F(Requests, QueriesNeedAConnectionAndOnlyTheMotionStateTurnsNullIntoAnObject) {
  std::string text = "old";
  for (const bool connected : {false, true}) {
    if (connected) connect();
    EXPECT_EQ(client->queryMotionState(&text, 70), connected);
    EXPECT_EQ(text, connected ? "{}" : "old");
    EXPECT_EQ(client->getMotionCapabilities(&text, 70), connected);
    EXPECT_EQ(text, connected ? "null" : "old");
    EXPECT_EQ(client->getLastError(), connected ? 0U : 6U);
  }
  robot.on("queryMotionState", refused(0, object({{"posture", "lying"}})));
  EXPECT_FALSE(client->queryMotionState(&text, 70));
  EXPECT_EQ(text, "null");
  EXPECT_EQ(client->getLastError(), 9U);
  EXPECT_TRUE(client->getMotionCapabilities(nullptr, 70));
}

TEST_F(Requests, MotorLayoutIsFetchedOnce) {
  MotorLayout layout{};
  EXPECT_FALSE(client->getMotorLayout(&layout, 70));
  EXPECT_EQ(client->getLastError(), 6U);
  connect();
  for (const Json::Value& bad : {kNull, Json::Value("text"), object({{"motorNum", 2}})}) {
    robot.on("getMotorLayout", accepted(bad));
    EXPECT_FALSE(client->getMotorLayout(&layout, 70));
    EXPECT_EQ(client->getLastError(), 9U);
  }
  Json::Value motors(Json::arrayValue);
  motors.append(object({{"limbNo", 2}, {"jointNo", 1}, {"name", "thigh"}}));
  robot.on("getMotorLayout", accepted(object({{"motorNum", 1}, {"motors", motors}})));
  EXPECT_TRUE(client->getMotorLayout(nullptr, 70)) << "fetched, not wanted";
  bus.forgetRequests();
  client->disconnect();
  EXPECT_TRUE(client->getMotorLayout(&layout, 70));
  EXPECT_EQ(layout.motorNum, 1U);
  EXPECT_EQ(layout.motors[0].limbNo, 2);
  EXPECT_STREQ(layout.motors[0].name, "thigh");
  EXPECT_THAT(bus.requests(), IsEmpty());
}

TEST_F(Requests, ObservedEnableHandsBackTheRequestAndSwitchesTheSource) {
  std::string text = "old";
  EXPECT_FALSE(client->setMotionObservedEnable("{}", &text, 70));
  EXPECT_EQ(client->getLastError(), 6U);
  connect();
  EXPECT_FALSE(client->setMotionObservedEnable("{", &text, 70));
  EXPECT_EQ(client->getLastError(), 10U);
  for (const Reply& failure : {transportFailure(1), refused()}) {
    robot.on("setMotionObservedEnable", failure);
    EXPECT_FALSE(client->setMotionObservedEnable("{\"motionEnable\":true}", &text, 70));
    EXPECT_EQ(client->getLastError(), 9U);
  }
  EXPECT_EQ(text, "old");

  ObservedPower power{};
  ObservedSensorRecord sensor{};
  orvane::msg::dds_::MotionObserved_ motionSample{};
  orvane::msg::dds_::SensorObserved_ sensorSample{};
  bus.pushSample("motion/observed", &motionSample);
  EXPECT_FALSE(client->getPowerObserved(&power, 1'000'000)) << "the switch is still off";
  EXPECT_EQ(client->getLastError(), 8U);

  robot.on("setMotionObservedEnable", accepted(object({{"server", "says"}})));
  const std::string json = R"({"motionEnable":true,"sensorEnable":true})";
  EXPECT_TRUE(client->setMotionObservedEnable(json, &text, 70));
  EXPECT_EQ(text, json);
  EXPECT_TRUE(client->setMotionObservedEnable(json, nullptr, 70));

  // The age of power is in microseconds, that of sensors in milliseconds.
  motionSample.power.power = 81.5F;
  sensorSample.gps.level = 4;
  bus.pushSample("motion/observed", &motionSample);
  bus.pushSample("sensor/observed", &sensorSample);
  clock.advance(20);
  EXPECT_TRUE(client->getPowerObserved(&power, 20'000));
  EXPECT_EQ(power.power, 81.5F);
  EXPECT_FALSE(client->getPowerObserved(&power, 19'999));
  EXPECT_EQ(client->getLastError(), 8U);
  EXPECT_TRUE(client->getSensorObserved(&sensor, 20));
  EXPECT_EQ(sensor.gps.level, 4);
  EXPECT_FALSE(client->getSensorObserved(&sensor, 19));
  EXPECT_EQ(client->getLastError(), 8U);
  clock.advance(5'000'000);  // beyond 2^32 microseconds
  EXPECT_TRUE(client->getSensorObserved(&sensor, 5'000'020));
  EXPECT_FALSE(client->getSensorObserved(&sensor, 5'000'019));

  EXPECT_TRUE(client->setMotionObservedEnable("", &text, 70)) << "no switch named: both off";
  EXPECT_EQ(text, "null");
  EXPECT_FALSE(last().document.isMember("params"));
  EXPECT_FALSE(client->getSensorObserved(&sensor, 4'000'000'000));
  EXPECT_EQ(client->getLastError(), 8U);

  EXPECT_FALSE(client->getPowerObserved(nullptr, 100));
  EXPECT_EQ(client->getLastError(), 6U);
  EXPECT_FALSE(client->getSensorObserved(nullptr, 100));
  EXPECT_EQ(client->getLastError(), 6U);
  client->disconnect();
  EXPECT_FALSE(client->getPowerObserved(&power, 100));
  EXPECT_EQ(client->getLastError(), 6U);
}

}  // namespace
