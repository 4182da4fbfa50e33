#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Bodies.h"
#include "BodyFactory.h"
#include "EventOutbox.h"
#include "RobotCore.h"
#include "RobotSettings.h"
#include "body/KinematicBody.h"
#include "faults/Faults.h"
#include "pbase/CTime.h"
#include "pbase/Utils.h"
#include "pbase/VirtualClock.h"
#include "servers/RequestServer.h"
#ifdef ORVANE_WITH_PHYSICS
#include "physics/PhysicsBody.h"
#endif

namespace orvane::robot {

inline Json::Value json(const std::string& text) {
  Json::Value value;
  if (!Pexal::Utils::stringToJson(text, value)) ADD_FAILURE() << "not JSON: " << text;
  return value;
}

/// What a client makes of an answer: "ok", "withheld", "status 9", "refused 11" or "nonsense".
inline std::string told(const Pexal::PDBus::RpcReply& reply) {
  if (reply.withheld) return "withheld";
  if (reply.status != Pexal::PDBus::RpcStatus::kOk) {
    return "status " + std::to_string(static_cast<int>(reply.status));
  }
  const Json::Value& document = reply.document;
  if (!document.isObject() || !document["result"].isBool()) return "nonsense";
  if (document["result"].asBool()) return reply.reason == 0 ? "ok" : "ok with a reason";
  const bool explained = document["reason"].isString() && !document["reason"].asString().empty();
  return explained ? "refused " + std::to_string(reply.reason) : "refused without words";
}

inline constexpr const char* kWalkAhead = R"({"lineVelocityX":0.8,"lineVelocityY":0,"velocity":0})";

/// A robot "VR-7" without a network, on the virtual clock: its requests go through its faults.
class RobotBench : public ::testing::Test {
 protected:
  explicit RobotBench(BodyKind kind = BodyKind::kKinematic)
      : core_(std::make_shared<RobotCore>(made(kind), outbox_)) {}

  Pexal::PDBus::RpcReply send(const std::string& method, const Json::Value& document,
                              const char* service = RequestServer::kService) {
    return faults_.requests().handle({service, method, document, false}, service);
  }
  Pexal::PDBus::RpcReply ask(const std::string& method, const std::string& clientId,
                             const std::string& params = "",
                             const char* service = RequestServer::kService) {
    Json::Value document;
    document["call"]["clientId"] = clientId;
    if (!params.empty()) document["params"] = json(params);
    return send(method, document, service);
  }
  Pexal::PDBus::RpcReply act(const std::string& clientId, const std::string& action,
                             const std::string& params = "{}") {
    return ask("startMotionAction", clientId,
               "{\"action\":\"" + action + "\",\"params\":" + params + "}");
  }
  std::string take(const std::string& clientId = "app", std::uint32_t leaseMs = 60000) {
    const auto reply = ask("takeMotionControl", clientId,
                           "{\"cmdMode\":true,\"leaseTimeout\":" + std::to_string(leaseMs) + "}");
    EXPECT_EQ(told(reply), "ok");
    return reply.document["params"]["controller"].asString();
  }
  Json::Value state() { return ask("queryMotionState", "anybody").document["params"]; }
  std::string posture() { return state()["posture"].asString(); }
  std::string controller() { return state()["control"]["controller"].asString(); }

  static std::uint64_t nowMs() { return Pexal::PBase::CTime::getCurrentMilliSecond(); }
  /// Of the hips above the ground, m: where they truly are, which the robot itself may not know.
  [[nodiscard]] double height() const {
#ifdef ORVANE_WITH_PHYSICS
    if (auto* const body = dynamic_cast<PhysicsBody*>(body_)) {
      return body->world().pose().position[2];
    }
#endif
    return body_->state().height;
  }
  /// Lets time pass, with the robot's 2 ms steps.
  void pass(std::uint32_t ms) {
    for (std::uint32_t passed = 0; passed < ms; passed += 2) {
      clock_.advance(2);
      core_->access().step(0.002);
    }
  }
  std::string standUp() {
    std::string controller = take();
    EXPECT_EQ(told(act(controller, "standing")), "ok");
    pass(4000);
    EXPECT_EQ(posture(), "standing");
    return controller;
  }
  /// All events so far: "controlled <controller>", "free " or a posture.
  std::vector<std::string> events() {
    std::vector<std::string> texts;
    while (const auto event = outbox_->take(0)) {
      const Json::Value& payload = event->payload;
      EXPECT_EQ(payload["deviceNo"].asString(), "VR-7");
      texts.push_back(event->topic == ".control.status"
                          ? std::string(payload["controlled"].asBool() ? "controlled " : "free ") +
                                payload["controller"].asString()
                          : payload["detail"]["posture"].asString());
    }
    return texts;
  }

  Pexal::PBase::VirtualClock clock_;
  std::shared_ptr<EventOutbox> outbox_ = std::make_shared<EventOutbox>("VR-7");
  Body* body_ = nullptr;
  const std::shared_ptr<RobotCore> core_;  // has the body
  Faults faults_{core_, std::make_shared<RequestServer>(core_, "VR-7")};

 private:
  std::unique_ptr<Body> made(BodyKind kind) {
    RobotSettings settings;
    settings.body = kind;
    auto body = makeBody(settings);
    body_ = body.get();
    return body;
  }
};

}  // namespace orvane::robot
