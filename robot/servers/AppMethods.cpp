// What moves the robot as a whole, and what it tells of itself.

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "servers/Actions.h"
#include "servers/Documents.h"
#include "servers/Methods.h"

namespace orvane::robot {
namespace {

constexpr std::size_t kLongestName = 64;

Refusal heldByASession(RobotCore::Access& robot) {
  const WorkMode& session = *robot.session().current();
  return {Reason::kHeldByAnother, "the motors are under a low-level session of " + session.holder +
                                      " for another " +
                                      std::to_string(session.untilMs - robot.nowMs()) + " ms"};
}

Answer takeControl(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"cmdMode", "leaseTimeout"});
  const bool commandMode = params.optionalBool("cmdMode").value_or(true);
  const auto lease = params.optionalUnsigned("leaseTimeout");
  if (params.failure()) return *params.failure();
  if (!commandMode) return Refusal{Reason::kNotAvailable, "params: cmdMode must be true"};
  if (call.robot.session().claimsMotion()) return heldByASession(call.robot);
  if (auto refusal = heldFromAfar(call.robot)) return *std::move(refusal);
  auto taken = call.robot.arbiter().take(call.clientId, lease, call.robot.nowMs());
  if (auto* refusal = std::get_if<Refusal>(&taken)) return std::move(*refusal);
  const Grant& grant = std::get<Grant>(taken);
  Json::Value answer;
  answer["controller"] = grant.controller;
  answer["leaseTimeout"] = grant.leaseMs;
  return answer;
}

Answer renewControl(const Call& call) {
  return doneOr(call.robot.arbiter().renew(call.clientId, call.robot.nowMs()));
}

Answer releaseControl(const Call& call) {
  return doneOr(call.robot.arbiter().release(call.clientId, call.robot.nowMs()));
}

Answer setMasterRole(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"master"});
  std::string master = params.text("master", kLongestName);
  if (params.failure()) return *params.failure();
  if (master != "brain" && master != "cerebellum") {
    return Refusal{Reason::kInvalid, "params: master must be brain or cerebellum"};
  }
  const auto& grant = call.robot.arbiter().current();
  if (master != call.robot.masterRole() && grant && grant->controller != call.clientId) {
    return Refusal{Reason::kHeldByAnother,
                   "the master role can't change while " + grant->holder + " holds control"};
  }
  if (master == "brain" && call.robot.session().claimsMotion()) return heldByASession(call.robot);
  call.robot.masterRole() = std::move(master);
  return Json::Value();
}

Answer startAction(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"action", "params"});
  const std::string name = params.text("action", kLongestName);
  ObjectReader arguments(params.object("params"), "action params");
  if (params.failure()) return *params.failure();
  const auto row =
      std::find_if(kActionNames.begin(), kActionNames.end(),
                   [&](const ActionName& candidate) { return name == candidate.name; });
  if (row == kActionNames.end()) {
    return Refusal{Reason::kNotAvailable, "there is no action " + name};
  }
  Twist velocity;
  if (row->action == Action::kWalking) {
    arguments.onlyKeys({"lineVelocityX", "lineVelocityY", "velocity"});
    velocity.x = arguments.number("lineVelocityX", kForwardSpeed);
    velocity.y = arguments.number("lineVelocityY", kSidewaysSpeed);
    velocity.yaw = arguments.number("velocity", kYawSpeed);
  } else {
    arguments.onlyKeys({});
  }
  if (arguments.failure()) return *arguments.failure();
  return doneOr(call.robot.motion().start(row->action, velocity, call.robot.nowMs()));
}

Answer stopAction(const Call& call) {
  return doneOr(call.robot.motion().start(Action::kStop, {}, call.robot.nowMs()));
}

Answer emergencyStop(const Call& call) {
  return doneOr(call.robot.motion().start(Action::kEmergencyStop, {}, call.robot.nowMs()));
}

Answer setActionParams(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"params"});
  ObjectReader values(params.object("params"), "action params");
  values.onlyKeys({"bodyHeight", "stepHeight"});
  const auto bodyHeight = values.optionalNumber("bodyHeight", kBodyHeight);
  const auto stepHeight = values.optionalNumber("stepHeight", kStepHeight);
  if (params.failure()) return *params.failure();
  if (values.failure()) return *values.failure();
  if (bodyHeight) call.robot.motion().setBodyHeight(*bodyHeight);
  if (stepHeight) call.robot.motion().setStepHeight(*stepHeight);
  return Json::Value();
}

// The observed topics are for everybody on the network, so no single client can switch them: each
// client's own switches decide what it hears. The request is checked all the same.
Answer enableObserved(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"motionEnable", "sensorEnable"});
  static_cast<void>(params.optionalBool("motionEnable"));
  static_cast<void>(params.optionalBool("sensorEnable"));
  return doneOr(params.failure());
}

Answer motorLayout(const Call&) {
  return motorLayoutDocument();
}

Answer motionState(const Call& call) {
  return motionStateDocument(call.robot, call.self.deviceId);
}

Answer capabilities(const Call& call) {
  return capabilitiesDocument(call.robot);
}

// Renewing and releasing judge the caller themselves.
constexpr Method kMethods[] = {
    {"takeMotionControl", false, takeControl},
    {"renewMotionControl", false, renewControl},
    {"releaseMotionControl", false, releaseControl},
    {"setMotionMasterRole", false, setMasterRole},
    {"startMotionAction", true, startAction},
    {"stopMotionAction", true, stopAction},
    {"emergencyStopMotion", true, emergencyStop},
    {"setMotionActionParams", true, setActionParams},
    {"setMotionObservedEnable", false, enableObserved},
    {"getMotorLayout", false, motorLayout},
    {"queryMotionState", false, motionState},
    {"getMotionCapabilities", false, capabilities},
    {"restoreMotionControlMode", false, restoreMotionControlMode},
};

}  // namespace

const Method* findAppMethod(const std::string& name) {
  const Method* method = findIn(std::begin(kMethods), std::end(kMethods), name);
  return method != nullptr ? method : findMediaMethod(name);
}

}  // namespace orvane::robot
