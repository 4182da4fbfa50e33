// The robot as a client meets it: documents in, documents and events out, on the virtual clock.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "EventOutbox.h"
#include "Network.h"
#include "RobotCore.h"
#include "body/KinematicBody.h"
#include "pbase/CTime.h"
#include "pbase/Utils.h"
#include "pbase/VirtualClock.h"
#include "servers/RequestServer.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcStatus;

Json::Value json(const std::string& text) {
  Json::Value value;
  if (!Pexal::Utils::stringToJson(text, value)) ADD_FAILURE() << "not JSON: " << text;
  return value;
}

class RobotRequests : public ::testing::Test {
 protected:
  RpcReply send(const std::string& method, const Json::Value& document) {
    return server_.handle({RequestServer::kService, method, document, false});
  }
  RpcReply ask(const std::string& method, const std::string& clientId,
               const std::string& params = "") {
    Json::Value document;
    document["call"]["clientId"] = clientId;
    if (!params.empty()) document["params"] = json(params);
    return send(method, document);
  }
  RpcReply act(const std::string& clientId, const std::string& action,
               const std::string& params = "{}") {
    return ask("startMotionAction", clientId,
               "{\"action\":\"" + action + "\",\"params\":" + params + "}");
  }
  std::string take(const std::string& clientId = "app", std::uint32_t leaseMs = 60000) {
    const RpcReply reply =
        ask("takeMotionControl", clientId,
            "{\"cmdMode\":true,\"leaseTimeout\":" + std::to_string(leaseMs) + "}");
    EXPECT_TRUE(reply.document["result"].asBool());
    return reply.document["params"]["controller"].asString();
  }
  Json::Value state() { return ask("queryMotionState", "anybody").document["params"]; }
  std::string posture() { return state()["posture"].asString(); }

  /// Lets time pass, with the robot's 2 ms steps.
  void pass(std::uint32_t ms) {
    for (std::uint32_t passed = 0; passed < ms; passed += 2) {
      clock_.advance(2);
      core_->access().step(0.002);
    }
  }
  std::string standUp() {
    std::string controller = take();
    EXPECT_TRUE(act(controller, "standing").document["result"].asBool());
    pass(4000);
    EXPECT_EQ(posture(), "standing");
    return controller;
  }
  /// All events so far: ".control.status true <controller>" or ".host.event <what>".
  std::vector<std::string> events() {
    std::vector<std::string> texts;
    while (auto event = outbox_->take(0)) {
      EXPECT_EQ(event->payload["deviceNo"].asString(), "VR-7");
      const Json::Value& payload = event->payload;
      texts.push_back(event->topic == ".control.status"
                          ? std::string(payload["controlled"].asBool() ? "controlled " : "free ") +
                                payload["controller"].asString()
                          : payload["detail"]["posture"].asString());
    }
    return texts;
  }

  Pexal::PBase::VirtualClock clock_;
  std::shared_ptr<EventOutbox> outbox_ = std::make_shared<EventOutbox>("VR-7");
  std::shared_ptr<RobotCore> core_ =
      std::make_shared<RobotCore>(std::make_unique<KinematicBody>(), outbox_);
  RequestServer server_{core_, "VR-7"};
};

#define EXPECT_REFUSED(reply, code)                             \
  do {                                                          \
    const RpcReply& answer = (reply);                           \
    EXPECT_EQ(answer.status, RpcStatus::kOk);                   \
    EXPECT_TRUE(answer.document["result"].isBool());            \
    EXPECT_FALSE(answer.document["result"].asBool());           \
    EXPECT_FALSE(answer.document["reason"].asString().empty()); \
    EXPECT_EQ(answer.reason, static_cast<std::uint32_t>(code)); \
  } while (false)

TEST_F(RobotRequests, unknownServiceAndMethodAreTransportFailures) {
  EXPECT_EQ(server_.handle({"brainAppService", "queryMotionState", json("{}"), false}).status,
            RpcStatus::kNoService);
  EXPECT_EQ(ask("makeCoffee", "app").status, RpcStatus::kNoMethod);
}

TEST_F(RobotRequests, everyMethodSurvivesBadDocuments) {
  const char* const kMethods[] = {
      "takeMotionControl",   "renewMotionControl",    "releaseMotionControl",
      "setMotionMasterRole", "startMotionAction",     "stopMotionAction",
      "emergencyStopMotion", "setMotionActionParams", "setMotionObservedEnable",
      "getMotorLayout",      "queryMotionState",      "getMotionCapabilities",
      "getSystemStatus",     "startPlayList"};
  const char* const kDocuments[] = {"{}",
                                    R"({"call":7})",
                                    R"({"call":{}})",
                                    R"({"call":{"clientId":7}})",
                                    R"({"call":{"clientId":""}})",
                                    R"({"call":{"clientId":"a"},"params":"text"})",
                                    R"({"call":{"clientId":"a"},"params":[1,2]})",
                                    R"({"call":{"clientId":"a"},"params":true})"};
  const std::string controller = standUp();
  for (const char* method : kMethods) {
    for (const char* document : kDocuments) {
      SCOPED_TRACE(std::string(method) + " " + document);
      EXPECT_REFUSED(send(method, json(document)), Reason::kInvalid);
    }
  }
  Json::Value longName;
  longName["call"]["clientId"] = std::string(100000, 'x');
  EXPECT_REFUSED(send("queryMotionState", longName), Reason::kInvalid);
  EXPECT_EQ(posture(), "standing");
  EXPECT_EQ(state()["control"]["controller"].asString(), controller);
}

TEST_F(RobotRequests, parametersAreCheckedOneByOne) {
  struct Case {
    const char* method;
    const char* params;
    Reason reason;
  };
  const Case kCases[] = {
      {"takeMotionControl", R"({"leaseTimeout":-1})", Reason::kInvalid},
      {"takeMotionControl", R"({"leaseTimeout":"60"})", Reason::kInvalid},
      {"takeMotionControl", R"({"cmdMode":1})", Reason::kInvalid},
      {"takeMotionControl", R"({"cmdMode":false})", Reason::kNotAvailable},
      {"takeMotionControl", R"({"leaseTimout":5000})", Reason::kInvalid},
      {"setMotionMasterRole", R"({})", Reason::kInvalid},
      {"setMotionMasterRole", R"({"master":"me"})", Reason::kInvalid},
      {"setMotionMasterRole", R"({"master":["brain"]})", Reason::kInvalid},
      {"setMotionObservedEnable", R"({"motionEnable":1})", Reason::kInvalid},
      {"startMotionAction", R"({})", Reason::kInvalid},
      {"startMotionAction", R"({"action":{}})", Reason::kInvalid},
      {"startMotionAction", R"({"action":"backflip"})", Reason::kNotAvailable},
      {"startMotionAction", R"({"action":"standing","params":{"fast":true}})", Reason::kInvalid},
      {"startMotionAction", R"({"action":"walking"})", Reason::kInvalid},
      {"startMotionAction", R"({"action":"walking","params":7})", Reason::kInvalid},
      {"startMotionAction",
       R"({"action":"walking","params":{"lineVelocityX":0.1,"lineVelocityY":0}})",
       Reason::kInvalid},
      {"startMotionAction",
       R"({"action":"walking","params":{"lineVelocityX":null,"lineVelocityY":0,"velocity":0}})",
       Reason::kInvalid},
      {"startMotionAction",
       R"({"action":"walking","params":{"lineVelocityX":1.01,"lineVelocityY":0,"velocity":0}})",
       Reason::kOutOfRange},
      {"startMotionAction",
       R"({"action":"walking","params":{"lineVelocityX":0,"lineVelocityY":0,"velocity":-1e308}})",
       Reason::kOutOfRange},
      {"setMotionActionParams", R"({"bodyHeight":0.3})", Reason::kInvalid},
      {"setMotionActionParams", R"({"params":{"bodyHeight":0.5}})", Reason::kOutOfRange},
      {"setMotionActionParams", R"({"params":{"bodyHeight":"high"}})", Reason::kInvalid},
      {"setMotionActionParams", R"({"params":{"bodyHeight":0.3,"x":0.05}})", Reason::kInvalid},
  };
  const std::string controller = standUp();
  for (const Case& row : kCases) {
    SCOPED_TRACE(std::string(row.method) + " " + row.params);
    EXPECT_REFUSED(ask(row.method, controller, row.params), row.reason);
  }
  for (const double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    Json::Value document;
    document["call"]["clientId"] = controller;
    document["params"]["action"] = "walking";
    document["params"]["params"]["lineVelocityX"] = bad;
    document["params"]["params"]["lineVelocityY"] = 0;
    document["params"]["params"]["velocity"] = 0;
    EXPECT_REFUSED(send("startMotionAction", document), Reason::kInvalid);
  }
  EXPECT_EQ(posture(), "standing");
  EXPECT_NEAR(state()["actionParams"]["bodyHeight"].asDouble(), 0.30, 1e-9);
}

TEST_F(RobotRequests, limitsAreAcceptedAsTheFloatsThatClientsSend) {
  const std::string controller = standUp();
  Json::Value document;
  document["call"]["clientId"] = controller;
  document["params"]["action"] = "walking";
  document["params"]["params"]["lineVelocityX"] = static_cast<double>(-0.8F);
  document["params"]["params"]["lineVelocityY"] = static_cast<double>(0.4F);
  document["params"]["params"]["velocity"] = static_cast<double>(1.5F);
  EXPECT_TRUE(send("startMotionAction", document).document["result"].asBool());
  EXPECT_EQ(posture(), "walking");
}

TEST_F(RobotRequests, onlyTheControllerMovesTheRobotAndEverybodyMayLook) {
  struct Row {
    const char* method;
    const char* params;
    bool needsControl;
  };
  const Row kRows[] = {{"startMotionAction", R"({"action":"standing"})", true},
                       {"stopMotionAction", "", true},
                       {"emergencyStopMotion", "", true},
                       {"setMotionActionParams", R"({"params":{"stepHeight":0.05}})", true},
                       {"setMotionObservedEnable", R"({"motionEnable":true})", false},
                       {"setMotionMasterRole", R"({"master":"cerebellum"})", false},
                       {"getMotorLayout", "", false},
                       {"queryMotionState", "", false},
                       {"getMotionCapabilities", "", false},
                       {"getSystemStatus", "", false}};
  const std::string controller = take("app");
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.method);
    if (row.needsControl) {
      EXPECT_REFUSED(ask(row.method, "app", row.params), Reason::kNotController);
    } else {
      EXPECT_TRUE(ask(row.method, "app", row.params).document["result"].asBool());
    }
    EXPECT_TRUE(ask(row.method, controller, row.params).document["result"].asBool());
  }
  EXPECT_REFUSED(ask("takeMotionControl", "app"), Reason::kHeldByAnother);
  EXPECT_REFUSED(ask("setMotionMasterRole", "other", R"({"master":"brain"})"),
                 Reason::kHeldByAnother);
}

TEST_F(RobotRequests, leaseEndEndsMotionAndIsTold) {
  std::string controller = take("app", 2000);
  ASSERT_TRUE(act(controller, "standing").document["result"].asBool());
  for (int i = 0; i < 4; ++i) {
    pass(1000);
    ASSERT_TRUE(ask("renewMotionControl", controller).document["result"].asBool());
  }
  const char* const kWalk = R"({"lineVelocityX":0.8,"lineVelocityY":0,"velocity":0})";
  for (int i = 0; i < 19; ++i) {
    ASSERT_TRUE(act(controller, "walking", kWalk).document["result"].asBool());
    pass(100);
  }
  ASSERT_TRUE(act(controller, "walking", kWalk).document["result"].asBool());
  EXPECT_EQ(state()["control"]["remainingMs"].asUInt64(), 100U);
  events();
  pass(100);
  EXPECT_EQ(posture(), "stopping");
  EXPECT_EQ(events(), (std::vector<std::string>{"free ", "stopping"}));
  EXPECT_REFUSED(act(controller, "walking", kWalk), Reason::kExpired);
  EXPECT_REFUSED(ask("renewMotionControl", controller), Reason::kExpired);
  EXPECT_FALSE(state()["control"]["controlled"].asBool());
  pass(1000);
  EXPECT_EQ(posture(), "standing");
}

TEST_F(RobotRequests, revokeAndPreemptStopTheWalkAndSayWhose) {
  const std::string controller = standUp();
  events();
  const char* const kWalk = R"({"lineVelocityX":0.8,"lineVelocityY":0,"velocity":0})";
  ASSERT_TRUE(act(controller, "walking", kWalk).document["result"].asBool());
  std::string rival;
  {
    RobotCore::Access robot = core_->access();
    rival = robot.arbiter().preempt("remote", 5000, robot.nowMs()).controller;
  }
  EXPECT_EQ(events(), (std::vector<std::string>{"walking", "controlled " + rival, "stopping"}));
  EXPECT_REFUSED(act(controller, "walking", kWalk), Reason::kRevoked);
  {
    RobotCore::Access robot = core_->access();
    EXPECT_TRUE(robot.arbiter().restore(robot.nowMs()));
  }
  EXPECT_EQ(events(), (std::vector<std::string>{"controlled " + controller}));
  EXPECT_TRUE(act(controller, "walking", kWalk).document["result"].asBool());
  {
    RobotCore::Access robot = core_->access();
    EXPECT_TRUE(robot.arbiter().revoke(robot.nowMs()));
  }
  EXPECT_REFUSED(ask("renewMotionControl", controller), Reason::kRevoked);
  EXPECT_EQ(events(), (std::vector<std::string>{"walking", "free ", "stopping"}));
}

TEST_F(RobotRequests, motionStateTellsWhoHoldsControlAndTheLastRefusal) {
  EXPECT_TRUE(state()["lastRefusal"].isNull());
  EXPECT_FALSE(state()["control"]["controlled"].asBool());
  const std::uint64_t takenMs = Pexal::PBase::CTime::getCurrentMilliSecond();
  const std::string controller = take("app", 30000);
  pass(1000);
  EXPECT_REFUSED(
      act(controller, "walking", R"({"lineVelocityX":0,"lineVelocityY":0,"velocity":0})"),
      Reason::kNotNow);
  const Json::Value now = state();
  EXPECT_EQ(now["deviceNo"].asString(), "VR-7");
  EXPECT_EQ(now["control"]["holder"].asString(), "app");
  EXPECT_EQ(now["control"]["controller"].asString(), controller);
  EXPECT_EQ(now["control"]["sinceMs"].asUInt64(), takenMs);
  EXPECT_EQ(now["control"]["untilMs"].asUInt64(), takenMs + 30000);
  EXPECT_EQ(now["control"]["remainingMs"].asUInt64(), 29000U);
  EXPECT_EQ(now["lastRefusal"]["method"].asString(), "startMotionAction");
  EXPECT_EQ(now["lastRefusal"]["clientId"].asString(), controller);
  EXPECT_NE(now["lastRefusal"]["reason"].asString().find("lying"), std::string::npos);
  EXPECT_EQ(now["lastRefusal"]["atMs"].asUInt64(), takenMs + 1000);
}

TEST_F(RobotRequests, emergencyStopIsShownAndLatches) {
  const std::string controller = standUp();
  ASSERT_TRUE(ask("emergencyStopMotion", controller).document["result"].asBool());
  EXPECT_TRUE(state()["emergencyStop"].asBool());
  EXPECT_REFUSED(act(controller, "standing"), Reason::kNotNow);
  ASSERT_TRUE(act(controller, "recoveryStand").document["result"].asBool());
  EXPECT_FALSE(state()["emergencyStop"].asBool());
  pass(6000);
  EXPECT_EQ(posture(), "standing");
}

TEST_F(RobotRequests, layoutNamesTwelveMotors) {
  const Json::Value layout = ask("getMotorLayout", "app").document["params"];
  EXPECT_EQ(layout["motorNum"].asUInt(), 12U);
  ASSERT_EQ(layout["motors"].size(), 12U);
  EXPECT_EQ(layout["motors"][5]["name"].asString(), "FR_calf");
  EXPECT_EQ(layout["motors"][5]["limbNo"].asUInt(), 1U);
  EXPECT_EQ(layout["motors"][5]["jointNo"].asUInt(), 2U);
}

TEST_F(RobotRequests, mediaIsRefusedWithItsReason) {
  const RpcReply reply = ask("getAudioPlayList", "app");
  EXPECT_REFUSED(reply, Reason::kNotAvailable);
  EXPECT_EQ(reply.document["reason"].asString(), "media room not available");
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
  for (const char* id : {"", "VR*", "VR?", "\"VR\"", "a b", "a/b", "\xff"}) {
    EXPECT_TRUE(settingsError(id, "lo", 42)) << id;
  }
  EXPECT_TRUE(settingsError(std::string(65, 'x'), "lo", 42));
  EXPECT_TRUE(settingsError("VR", "nope0", 42));
  EXPECT_TRUE(settingsError("VR", "", 42));
  EXPECT_TRUE(settingsError("VR", "lo\"/><x", 42));
  EXPECT_TRUE(settingsError("VR", "lo", 231));
}

}  // namespace
}  // namespace orvane::robot
