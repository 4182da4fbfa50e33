// The robot as a client meets it: documents in, documents and events out, on the virtual clock.

#include <cmath>
#include <limits>

#include "Network.h"
#include "robot_support.h"

namespace orvane::robot {
namespace {

using Strings = std::vector<std::string>;
using RobotRequests = RobotBench;

TEST_F(RobotRequests, badDocumentsAreRefused) {
  for (const char* document :
       {"{}", R"({"call":7})", R"({"call":{"clientId":7}})", R"({"call":{"clientId":""}})",
        R"({"call":{"clientId":"a"},"params":[1,2]})"}) {
    EXPECT_EQ(told(send("takeMotionControl", json(document))), "refused 22") << document;
  }
  EXPECT_EQ(told(faults_.requests().handle({"brainAppService", "queryMotionState", {}, false})),
            "status 8");
  EXPECT_EQ(told(ask("makeCoffee", "app")), "status 9");
}

TEST_F(RobotRequests, parametersAreCheckedOneByOne) {
  struct Case {
    const char* method;
    const char* params;
    const char* answer;
  };
  const Case kCases[] = {
      {"takeMotionControl", R"({"leaseTimeout":-1})", "refused 22"},
      {"takeMotionControl", R"({"leaseTimeout":"60"})", "refused 22"},
      {"takeMotionControl", R"({"cmdMode":1})", "refused 22"},
      {"takeMotionControl", R"({"cmdMode":false})", "refused 38"},
      {"takeMotionControl", R"({"leaseTimout":5000})", "refused 22"},
      {"setMotionMasterRole", "{}", "refused 22"},
      {"setMotionMasterRole", R"({"master":"me"})", "refused 22"},
      {"setMotionMasterRole", R"({"master":["brain"]})", "refused 22"},
      {"setMotionObservedEnable", R"({"motionEnable":1})", "refused 22"},
      {"startMotionAction", "{}", "refused 22"},
      {"startMotionAction", R"({"action":{}})", "refused 22"},
      {"startMotionAction", R"({"action":"backflip"})", "refused 38"},
      {"startMotionAction", R"({"action":"standing","params":{"fast":true}})", "refused 22"},
      {"startMotionAction", R"({"action":"walking"})", "refused 22"},
      {"startMotionAction", R"({"action":"walking","params":7})", "refused 22"},
      {"setMotionActionParams", R"({"bodyHeight":0.3})", "refused 22"},
      {"setMotionActionParams", R"({"params":{"bodyHeight":0.5}})", "refused 34"},
      {"setMotionActionParams", R"({"params":{"bodyHeight":"high"}})", "refused 22"},
      {"setMotionActionParams", R"({"params":{"bodyHeight":0.3,"x":0.05}})", "refused 22"},
  };
  const std::string holder = standUp();
  for (const Case& row : kCases) {
    EXPECT_EQ(told(ask(row.method, holder, row.params)), row.answer) << row.method << row.params;
  }
  EXPECT_NEAR(state()["actionParams"]["bodyHeight"].asDouble(), 0.30, 1e-9);

  // Limits are accepted as the floats that clients send, which lie beside them as doubles.
  const std::pair<Json::Value, const char*> kSpeeds[] = {
      {Json::Value(), "refused 22"},
      {std::nan(""), "refused 22"},
      {std::numeric_limits<double>::infinity(), "refused 22"},
      {-1e308, "refused 34"},
      {0.41, "refused 34"},
      {static_cast<double>(-0.4F), "ok"},
      {static_cast<double>(0.4F), "ok"}};
  for (const auto& [sideways, answer] : kSpeeds) {
    Json::Value document = json(R"({"params":{"action":"walking","params":
        {"lineVelocityX":-0.800000011920929,"velocity":1.5}}})");
    document["call"]["clientId"] = holder;
    EXPECT_EQ(told(send("startMotionAction", document)), "refused 22") << "one is missing";
    document["params"]["params"]["lineVelocityY"] = sideways;
    EXPECT_EQ(posture(), "standing");
    EXPECT_EQ(told(send("startMotionAction", document)), answer) << sideways.toStyledString();
    ask("stopMotionAction", holder);
    pass(2000);
  }
}

TEST_F(RobotRequests, onlyTheControllerMovesTheRobotAndEverybodyMayLook) {
  struct Row {
    const char* method;
    const char* params;
    bool needsControl;
  };
  const Row kRows[] = {
      {"startMotionAction", R"({"action":"standing"})", true},
      {"stopMotionAction", "", true},
      {"emergencyStopMotion", "", true},
      {"setMotionActionParams", R"({"params":{"stepHeight":0.05}})", true},
      {"setMotionObservedEnable", R"({"motionEnable":true})", false},
      {"setMotionMasterRole", R"({"master":"cerebellum"})", false},
      {"getMotorLayout", "", false},
      {"queryMotionState", "", false},
      {"getMotionCapabilities", "", false},
      {"startPlayList", R"({"files":["bark"]})", true},
      {"stopPlayList", R"({"pause":true})", true},
      {"stopPlayList", "", true},
      {"addAudioFile", R"({"name":"a","format":"wav","lengthMs":100,"sizeBytes":1})", true},
      {"deleteAudioFile", R"({"name":"a"})", true},
      {"setCameraLightBrightness", R"({"brightness":80})", true},
      {"getCameraLightBrightness", "", true},
      {"getAudioPlayDetail", "", false},
      {"getAudioPlayList", "", false},
      {"getSystemStatus", "", false}};
  const std::string holder = take("app");
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.method);
    EXPECT_EQ(told(ask(row.method, "app", row.params)), row.needsControl ? "refused 1" : "ok");
    EXPECT_EQ(told(ask(row.method, holder, row.params)), "ok");
  }
  EXPECT_EQ(told(ask("takeMotionControl", "app")), "refused 16");
  EXPECT_EQ(told(ask("setMotionMasterRole", "b", R"({"master":"brain"})")), "refused 16");
}

TEST_F(RobotRequests, endOfALeaseEndsMotionAndIsTold) {
  const std::string holder = take("app", 2000);
  ASSERT_EQ(told(act(holder, "standing")), "ok");
  for (int i = 0; i < 4; ++i) {
    pass(1000);
    ASSERT_EQ(told(ask("renewMotionControl", holder)), "ok");
  }
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(told(act(holder, "walking", kWalkAhead)), "ok");
    EXPECT_EQ(state()["control"]["remainingMs"].asUInt64(), 2000U - 100 * i);
    events();
    pass(100);
  }
  EXPECT_EQ(posture(), "stopping");
  EXPECT_EQ(events(), (Strings{"free ", "stopping"}));
  EXPECT_EQ(told(act(holder, "walking", kWalkAhead)), "refused 62");
  EXPECT_FALSE(state()["control"]["controlled"].asBool());
  pass(1000);
  EXPECT_EQ(posture(), "standing");
}

TEST_F(RobotRequests, documentsTellWhoHoldsControlAndWhatWasRefusedLast) {
  EXPECT_TRUE(state()["lastRefusal"].isNull());
  EXPECT_FALSE(state()["control"]["controlled"].asBool());
  const std::uint64_t takenMs = nowMs();
  const std::string holder = take("app", 30000);
  pass(1000);
  EXPECT_EQ(told(act(holder, "walking", kWalkAhead)), "refused 11");
  const Json::Value now = state();
  EXPECT_EQ(now["deviceNo"].asString(), "VR-7");
  EXPECT_EQ(now["control"]["holder"].asString(), "app");
  EXPECT_EQ(now["control"]["controller"].asString(), holder);
  EXPECT_EQ(now["control"]["sinceMs"].asUInt64(), takenMs);
  EXPECT_EQ(now["control"]["untilMs"].asUInt64(), takenMs + 30000);
  EXPECT_EQ(now["control"]["remainingMs"].asUInt64(), 29000U);
  EXPECT_EQ(now["lastRefusal"]["method"].asString(), "startMotionAction");
  EXPECT_EQ(now["lastRefusal"]["clientId"].asString(), holder);
  EXPECT_NE(now["lastRefusal"]["reason"].asString().find("lying"), std::string::npos);
  EXPECT_EQ(now["lastRefusal"]["atMs"].asUInt64(), takenMs + 1000);

  const Json::Value layout = ask("getMotorLayout", "app").document["params"];
  EXPECT_EQ(layout["motorNum"].asUInt(), 12U);
  ASSERT_EQ(layout["motors"].size(), 12U);
  EXPECT_EQ(Pexal::Utils::jsonToString(layout["motors"][5]),
            R"({"jointNo":2,"limbNo":1,"name":"FR_calf"})");

  ASSERT_EQ(told(ask("emergencyStopMotion", holder)), "ok");
  EXPECT_TRUE(state()["emergencyStop"].asBool());
}

TEST(RobotBattery, lowBatteryIsTold) {
  auto outbox = std::make_shared<EventOutbox>("VR-7");
  RobotCore core(std::make_unique<KinematicBody>(20.0001), outbox);
  EXPECT_FALSE(outbox->take(0));
  for (int i = 0; i < 30000; ++i) core.access().step(0.002);
  const auto event = outbox->take(0);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->payload["detail"]["level"].asString(), "low");
  EXPECT_FALSE(outbox->take(0)) << "once, not at every step";
}

TEST(RobotSettings, addressesThatCannotWorkAreNamed) {
  EXPECT_FALSE(settingsError("VR-0001", "lo", 42));
  for (const auto& id : {std::string(), std::string("VR*"), std::string("\"VR\""),
                         std::string("a b"), std::string("\xff"), std::string(65, 'x')}) {
    EXPECT_TRUE(settingsError(id, "lo", 42)) << id;
  }
  for (const char* interface : {"nope0", "", "lo\"/><x"}) {
    EXPECT_TRUE(settingsError("VR", interface, 42)) << interface;
  }
  EXPECT_TRUE(settingsError("VR", "lo", 231));
}

}  // namespace
}  // namespace orvane::robot
