// The envelope of every request, the back ends that send it, and what is kept of the answers.

#include <cstring>

#include "highlevel/MotionControlBackEnd.h"
#include "highlevel/MotionHighLevelClientImpl.h"
#include "highlevel/RpcEnvelope.h"
#include "msg/MotionTypes.h"
#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using namespace orvane::RobotSdk;
using Kind = MotionHighLevelClientImpl::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Pexal::Utils::stringToJson(text, value)) << text;
  return value;
}

using Requests = ClientTest;

// --- the envelope ---

TEST(Envelope, EmptyParamsAreLeftOut) {
  for (const char* empty : {"null", "{}", "[]"}) {
    EXPECT_EQ(text(makeRpcRequest("me", json(empty))), R"({"call":{"clientId":"me"}})");
  }
  for (const char* params : {"0", "\"\"", "false", R"({"a":null})"}) {
    EXPECT_EQ(text(makeRpcRequest("me", json(params))["params"]), params);
  }
}

TEST(Envelope, VerdictTakesAnyDocumentAndParamsComeFirst) {
  const struct {
    bool accepted;
    std::string document;
    const char* output;
  } cases[] = {{true, R"({"result": true, "params": {"x":1}})", R"({"x":1})"},
               {true, R"({"result": 1, "params": 7})", "7"},
               {true, R"({"result": 0.5, "params": 7})", "7"},
               {true, R"({"result": true})", "null"},
               {false, R"({"result": false, "params": 7})", "7"},
               {false, R"({"result": 0, "params": 7})", "7"},
               {false, R"({"result": null, "params": 7})", "7"},
               {false, R"({"result": "true", "params": 7})", "7"},
               {false, R"({"result": {}, "params": 7})", "7"},
               {false, R"({"result": [1], "params": 7})", "7"},
               {false, R"({"params": 7})", "7"},
               {false, R"({"result": false})", "null"},
               {false, "{}", "null"},
               {false, "null", "null"},
               {false, "[]", "null"},
               {false, "\"result\"", "null"},
               {false, "42", "null"}};
  for (const auto& row : cases) {
    Json::Value output = "old";
    EXPECT_EQ(readRpcReply(json(row.document), output), row.accepted) << row.document;
    EXPECT_EQ(text(output), row.output) << row.document;
  }
}

// --- the back ends ---

/// The place of a virtual operation, as a caller compiled against the order has it.
template <class Operation>
std::size_t slotOf(Operation operation) {
  std::uintptr_t place = 0;
  std::memcpy(&place, &operation, sizeof place);
  return place / sizeof(void*);
}

TEST(BackEnd, KeepsTheOrderOfItsOperations) {
  using Control = IHighLevelMotionControl;
  const std::size_t slots[] = {slotOf(&Control::setup),
                               slotOf(&Control::teardown),
                               slotOf(&Control::disableAction),
                               slotOf(&Control::standing),
                               slotOf(&Control::laying),
                               slotOf(&Control::stopMotionAction),
                               slotOf(&Control::recoveryStand),
                               slotOf(&Control::emergencyStopMotion),
                               slotOf(&Control::setMotionMasterRole),
                               slotOf(&Control::getMotorLayout),
                               slotOf(&Control::queryMotionState),
                               slotOf(&Control::getMotionCapabilities),
                               slotOf(&Control::velocityMove),
                               slotOf(&Control::setMotionActionParams),
                               slotOf(&Control::setMotionObservedEnable),
                               slotOf(&Control::startMotionAction)};
  // The two destructors take 6 and 7.
  EXPECT_THAT(slots, ElementsAre(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17));
}

TEST_F(Requests, EachBoardHasItsBackEnd) {
  auto owner = std::make_shared<MotionHighLevelClientImpl>(Kind::kRemote, "dog-8");
  const struct {
    std::shared_ptr<IHighLevelMotionControl> control;
    const char* unit;
    std::string words;
    std::string server;
    const char* master;
  } boards[] = {{std::make_shared<BrainHighMotionControl>(owner), "BrainHighMotionControl",
                 "brain motion", "brainServer", "brain"},
                {std::make_shared<CereHighMotionControl>(owner, false), "CereHighMotionControl",
                 "cere motion", "cerebellumServer", "cerebellum"},
                {std::make_shared<CereHighMotionControl>(owner, true), "CereHighMotionControl",
                 "cere motion", "robotServer", "cerebellum"}};
  for (const auto& [control, unit, words, server, master] : boards) {
    SCOPED_TRACE(server);
    log.take();
    const auto fails = [&, &backEnd = *control](std::uint32_t code) {
      EXPECT_FALSE(backEnd.setMotionMasterRole(70));
      EXPECT_EQ(owner->getLastError(), code);
    };
    bus.behave({.rpc = false});
    EXPECT_FALSE(control->setup());
    fails(1);
    bus.behave({});
    const auto asked = bus.seen().rpcClients[server];
    EXPECT_TRUE(control->setup() && control->setup());
    EXPECT_EQ(bus.seen().rpcClients[server], asked + 1);
    robot.on("setMotionMasterRole", accepted());
    EXPECT_TRUE(control->setMotionMasterRole(70));
    const Request request = bus.requests().back();
    EXPECT_EQ(request.server + ' ' + request.service, server + " robotAppService");
    EXPECT_EQ(request.deviceId, "dog-8");
    EXPECT_EQ(request.document["params"], object({{"master", master}}));

    robot.on("setMotionMasterRole", transportFailure(2));
    fails(3);
    robot.on("setMotionMasterRole", refused(18));
    fails(9);
    const std::string rpc = words + " rpc robotAppService::setMotionMasterRole ";
    EXPECT_THAT(
        log.texts(4, unit),
        ElementsAre(words + " control setup failed: " + server + " rpc client unavailable\n",
                    rpc + "failed: scripted failure\n", rpc + "rejected, errno=0x12\n"));
    EXPECT_TRUE(control->teardown());
    fails(1);
  }
  EXPECT_TRUE(boards[0].control->setup());
  owner.reset();
  log.take();
  EXPECT_FALSE(boards[0].control->standing(100));
  EXPECT_THAT(log.take(), IsEmpty()) << "nobody is left to tell";
}

// --- what the client keeps of the answers ---

TEST_F(Requests, MotorLayoutIsFetchedOnce) {
  MotorLayout layout{};
  EXPECT_FALSE(client->getMotorLayout(&layout, 70));
  EXPECT_EQ(error(), 6U);
  connect();
  for (const char* bad : {"null", "\"text\"", R"({"motorNum": 2})"}) {
    robot.on("getMotorLayout", accepted(json(bad)));
    EXPECT_FALSE(client->getMotorLayout(&layout, 70));
    EXPECT_EQ(error(), 9U);
  }
  robot.on("getMotorLayout",
           accepted(json(R"({"motorNum": 1, "motors": [{"limbNo": 2, "name": "thigh"}]})")));
  EXPECT_TRUE(client->getMotorLayout(nullptr, 70)) << "fetched, not wanted";
  bus.forgetRequests();
  client->disconnect();
  EXPECT_TRUE(client->getMotorLayout(&layout, 70));
  EXPECT_EQ(layout.motors[0].limbNo, 2);
  EXPECT_STREQ(layout.motors[0].name, "thigh");
  EXPECT_THAT(bus.requests(), IsEmpty());
}

TEST_F(Requests, ObservedEnableHandsBackTheRequestAndSwitchesTheSource) {
  int motions = 0;
  int sensors = 0;
  client->setMotionObservedCallback([&](const auto&) { ++motions; });
  client->setSensorObservedCallback([&](const auto&) { ++sensors; });
  std::string out = "old";
  ObservedPower power{};
  ObservedSensorRecord sensor{};
  const auto refusedWith = [this](std::uint32_t code, bool done) {
    EXPECT_FALSE(done);
    EXPECT_EQ(error(), code);
  };
  const auto push = [&] {
    orvane::msg::dds_::MotionObserved_ motionSample{};
    orvane::msg::dds_::SensorObserved_ sensorSample{};
    motionSample.power.power = 81.5F;
    sensorSample.gps.level = 4;
    bus.pushSample("motion/observed", &motionSample);
    bus.pushSample("sensor/observed", &sensorSample);
  };
  refusedWith(6, client->setMotionObservedEnable("{}", &out, 70));
  refusedWith(6, client->getPowerObserved(&power, 100));
  connect();
  refusedWith(10, client->setMotionObservedEnable("{", &out, 70));
  const std::string on = R"({"motionEnable":true,"sensorEnable":true})";
  for (const Reply& failure : {transportFailure(1), refused()}) {
    robot.on("setMotionObservedEnable", failure);
    refusedWith(9, client->setMotionObservedEnable(on, &out, 70));
  }
  EXPECT_EQ(out, "old");
  push();
  refusedWith(8, client->getPowerObserved(&power, 1'000'000));
  EXPECT_EQ(motions + sensors, 0) << "the switch is still off";

  robot.on("setMotionObservedEnable", accepted(object({{"server", "says"}})));
  EXPECT_TRUE(client->setMotionObservedEnable(on, &out, 70));
  EXPECT_EQ(out, on);
  // The age of power is in microseconds, that of sensors in milliseconds.
  push();
  clock.advance(20);
  EXPECT_TRUE(client->getPowerObserved(&power, 20'000));
  EXPECT_EQ(power.power, 81.5F);
  refusedWith(8, client->getPowerObserved(&power, 19'999));
  EXPECT_TRUE(client->getSensorObserved(&sensor, 20));
  EXPECT_EQ(sensor.gps.level, 4);
  refusedWith(8, client->getSensorObserved(&sensor, 19));
  clock.advance(5'000'000);  // beyond 2^32 microseconds
  EXPECT_TRUE(client->getSensorObserved(&sensor, 5'000'020));
  refusedWith(8, client->getSensorObserved(&sensor, 5'000'019));
  refusedWith(6, client->getPowerObserved(nullptr, 100));
  refusedWith(6, client->getSensorObserved(nullptr, 100));

  EXPECT_TRUE(client->setMotionObservedEnable("", &out, 70)) << "no switch named: both off";
  EXPECT_EQ(out, "null");
  EXPECT_FALSE(bus.requests().back().document.isMember("params"));
  refusedWith(8, client->getSensorObserved(&sensor, 4'000'000'000));
  client->disconnect();
  push();
  EXPECT_EQ(motions, 1);
  EXPECT_EQ(sensors, 1);
}

}  // namespace
