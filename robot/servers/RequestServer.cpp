#include "servers/RequestServer.h"

#include <utility>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RpcStatus;

constexpr std::size_t kLongestClientId = 256;

RpcReply transportFailure(RpcStatus status) {
  RpcReply reply;
  reply.status = status;
  return reply;
}

const Method* find(const std::string& service, const std::string& name) {
  return service == RequestServer::kMotionService ? findSessionMethod(name) : findAppMethod(name);
}

}  // namespace

RequestServer::RequestServer(std::shared_ptr<RobotCore> core, std::string deviceId)
    : core_(std::move(core)),
      self_{std::move(deviceId), Pexal::PBase::CTime::getCurrentMilliSecond()} {}

bool RequestServer::isMethod(const std::string& name) {
  return findAppMethod(name) != nullptr || findSessionMethod(name) != nullptr;
}

RpcReply RequestServer::handle(const RpcRequest& request, const char* service) {
  if (request.service != service) return transportFailure(RpcStatus::kNoService);
  const Method* method = find(request.service, request.method);
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
  if (refusal.reason == Reason::kNoSession) {
    reply.document[Json::StaticString("params")][Json::StaticString("sessionInvalid")] = true;
  }
  robot.lastRefusal() = {method, std::move(clientId), std::move(refusal), robot.nowMs()};
  return reply;
}

RpcReply RequestServer::answer(const Method& method, const Json::Value& document) {
  std::string clientId;
  const HostFigures host = method.tellsOfHost ? readHostFigures() : HostFigures();
  RobotCore::Access robot = core_->access();
  Answer answer = carryOut(robot, method, document, host, clientId);
  if (auto* reason = std::get_if<Refusal>(&answer)) {
    return refusal(robot, method.name, std::move(clientId), std::move(*reason));
  }
  RpcReply reply;
  reply.document[Json::StaticString("result")] = true;
  auto& params = std::get<Json::Value>(answer);
  if (!params.isNull()) reply.document[Json::StaticString("params")] = std::move(params);
  return reply;
}

Answer RequestServer::carryOut(RobotCore::Access& robot, const Method& method,
                               const Json::Value& document, const HostFigures& host,
                               std::string& clientId) {
  ObjectReader envelope(document, "request");
  ObjectReader caller(envelope.object("call"), "call");
  const Json::Value& params = envelope.object("params");
  clientId = caller.text("clientId", kLongestClientId);
  if (envelope.failure()) return *envelope.failure();
  if (caller.failure()) return *caller.failure();
  if (method.needsControl) {
    if (auto refusal = robot.arbiter().check(clientId, robot.nowMs())) return *std::move(refusal);
  }
  return method.handler({robot, clientId, params, self_, host});
}

}  // namespace orvane::robot
