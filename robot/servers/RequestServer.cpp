#include "servers/RequestServer.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"
#include "servers/Actions.h"
#include "servers/Documents.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RpcStatus;

constexpr std::size_t kLongestClientId = 256;
constexpr std::size_t kLongestName = 64;

RpcReply transportFailure(RpcStatus status) {
  RpcReply reply;
  reply.status = status;
  return reply;
}

Checked<Json::Value> doneOr(std::optional<Refusal> refusal) {
  if (refusal) return *std::move(refusal);
  return Json::Value();
}

}  // namespace

struct RequestServer::Method {
  const char* name;
  bool needsControl;
  Answer (RequestServer::*handler)(const Call&);
};

// Renewing and releasing judge the caller themselves.
const RequestServer::Method RequestServer::kMethods[] = {
    {"takeMotionControl", false, &RequestServer::takeControl},
    {"renewMotionControl", false, &RequestServer::renewControl},
    {"releaseMotionControl", false, &RequestServer::releaseControl},
    {"setMotionMasterRole", false, &RequestServer::setMasterRole},
    {"startMotionAction", true, &RequestServer::startAction},
    {"stopMotionAction", true, &RequestServer::stopAction},
    {"emergencyStopMotion", true, &RequestServer::emergencyStop},
    {"setMotionActionParams", true, &RequestServer::setActionParams},
    {"setMotionObservedEnable", false, &RequestServer::enableObserved},
    {"getMotorLayout", false, &RequestServer::motorLayout},
    {"queryMotionState", false, &RequestServer::motionState},
    {"getMotionCapabilities", false, &RequestServer::capabilities},
    {"getSystemStatus", false, &RequestServer::systemStatus},
    {"startPlayList", false, &RequestServer::refuseMedia},
    {"stopPlayList", false, &RequestServer::refuseMedia},
    {"addAudioFile", false, &RequestServer::refuseMedia},
    {"deleteAudioFile", false, &RequestServer::refuseMedia},
    {"setCameraLightBrightness", false, &RequestServer::refuseMedia},
    {"getCameraLightBrightness", false, &RequestServer::refuseMedia},
    {"getAudioPlayDetail", false, &RequestServer::refuseMedia},
    {"getAudioPlayList", false, &RequestServer::refuseMedia},
};

RequestServer::RequestServer(std::shared_ptr<RobotCore> core, std::string deviceId)
    : core_(std::move(core)),
      deviceId_(std::move(deviceId)),
      startedMs_(Pexal::PBase::CTime::getCurrentMilliSecond()) {}

const RequestServer::Method* RequestServer::find(const std::string& name) {
  const auto method = std::find_if(std::begin(kMethods), std::end(kMethods),
                                   [&](const Method& row) { return name == row.name; });
  return method == std::end(kMethods) ? nullptr : method;
}

RpcReply RequestServer::handle(const RpcRequest& request, const char* service) {
  if (request.service != service) return transportFailure(RpcStatus::kNoService);
  const Method* method = find(request.method);
  if (method == nullptr) return transportFailure(RpcStatus::kNoMethod);

  RpcReply reply = answer(*method, request.document);
  if (reply.reason != 0) {
    Pexal::ILogger::instance()->log(1, "VirtualRobot", "refused %s: %s\n", method->name,
                                    Pexal::Utils::jsonToString(reply.document["reason"]).c_str());
  }
  return reply;
}

RpcReply RequestServer::refuse(const RpcRequest& request, Refusal reason) {
  ObjectReader envelope(request.document, "request");
  ObjectReader caller(envelope.object("call"), "call");
  RobotCore::Access robot = core_->access();
  return refusal(robot, request.method, caller.text("clientId", kLongestClientId),
                 std::move(reason));
}

RpcReply RequestServer::refusal(RobotCore::Access& robot, const std::string& method,
                                std::string clientId, Refusal refusal) {
  RpcReply reply;
  reply.document[Json::StaticString("result")] = false;
  reply.document[Json::StaticString("reason")] = refusal.text;
  reply.reason = static_cast<std::uint32_t>(refusal.reason);
  robot.lastRefusal() = {method, std::move(clientId), std::move(refusal), robot.nowMs()};
  return reply;
}

RpcReply RequestServer::answer(const Method& method, const Json::Value& document) {
  std::string clientId;
  RobotCore::Access robot = core_->access();
  Answer answer = carryOut(robot, method, document, clientId);
  if (auto* reason = std::get_if<Refusal>(&answer)) {
    return refusal(robot, method.name, std::move(clientId), std::move(*reason));
  }
  RpcReply reply;
  reply.document[Json::StaticString("result")] = true;
  auto& params = std::get<Json::Value>(answer);
  if (!params.isNull()) reply.document[Json::StaticString("params")] = std::move(params);
  return reply;
}

RequestServer::Answer RequestServer::carryOut(RobotCore::Access& robot, const Method& method,
                                              const Json::Value& document, std::string& clientId) {
  ObjectReader envelope(document, "request");
  ObjectReader caller(envelope.object("call"), "call");
  const Json::Value& params = envelope.object("params");
  clientId = caller.text("clientId", kLongestClientId);
  if (envelope.failure()) return *envelope.failure();
  if (caller.failure()) return *caller.failure();
  if (method.needsControl) {
    if (auto refusal = robot.arbiter().check(clientId, robot.nowMs())) return *std::move(refusal);
  }
  return (this->*method.handler)({robot, clientId, params});
}

RequestServer::Answer RequestServer::takeControl(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"cmdMode", "leaseTimeout"});
  const bool commandMode = params.optionalBool("cmdMode").value_or(true);
  const auto lease = params.optionalUnsigned("leaseTimeout");
  if (params.failure()) return *params.failure();
  if (!commandMode) return Refusal{Reason::kNotAvailable, "params: cmdMode must be true"};
  auto taken = call.robot.arbiter().take(call.clientId, lease, call.robot.nowMs());
  if (auto* refusal = std::get_if<Refusal>(&taken)) return std::move(*refusal);
  const Grant& grant = std::get<Grant>(taken);
  Json::Value answer;
  answer["controller"] = grant.controller;
  answer["leaseTimeout"] = grant.leaseMs;
  return answer;
}

RequestServer::Answer RequestServer::renewControl(const Call& call) {
  return doneOr(call.robot.arbiter().renew(call.clientId, call.robot.nowMs()));
}

RequestServer::Answer RequestServer::releaseControl(const Call& call) {
  return doneOr(call.robot.arbiter().release(call.clientId, call.robot.nowMs()));
}

RequestServer::Answer RequestServer::setMasterRole(const Call& call) {
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
  call.robot.masterRole() = std::move(master);
  return Json::Value();
}

RequestServer::Answer RequestServer::startAction(const Call& call) {
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

RequestServer::Answer RequestServer::stopAction(const Call& call) {
  return doneOr(call.robot.motion().start(Action::kStop, {}, call.robot.nowMs()));
}

RequestServer::Answer RequestServer::emergencyStop(const Call& call) {
  return doneOr(call.robot.motion().start(Action::kEmergencyStop, {}, call.robot.nowMs()));
}

RequestServer::Answer RequestServer::setActionParams(const Call& call) {
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
RequestServer::Answer RequestServer::enableObserved(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"motionEnable", "sensorEnable"});
  static_cast<void>(params.optionalBool("motionEnable"));
  static_cast<void>(params.optionalBool("sensorEnable"));
  return doneOr(params.failure());
}

RequestServer::Answer RequestServer::motorLayout(const Call&) {
  return motorLayoutDocument();
}

RequestServer::Answer RequestServer::motionState(const Call& call) {
  return motionStateDocument(call.robot, deviceId_);
}

RequestServer::Answer RequestServer::capabilities(const Call&) {
  return capabilitiesDocument();
}

RequestServer::Answer RequestServer::systemStatus(const Call& call) {
  return systemStatusDocument(call.robot, deviceId_, startedMs_);
}

RequestServer::Answer RequestServer::refuseMedia(const Call&) {
  return Refusal{Reason::kNotAvailable, "media room not available"};
}

}  // namespace orvane::robot
