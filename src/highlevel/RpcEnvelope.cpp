#include "highlevel/RpcEnvelope.h"

#include <utility>

#include "highlevel/ErrorCode.h"
#include "log/Log.h"
#include "pbase/System.h"

namespace orvane::RobotSdk {

Json::Value makeRpcRequest(const std::string& clientId, const Json::Value& params) {
  using Key = Json::StaticString;  // kept by reference
  Json::Value request(Json::objectValue);
  request[Key("call")][Key("clientId")] = clientId;
  if (!params.empty()) request[Key("params")] = params;
  return request;
}

bool readRpcReply(Json::Value reply, Json::Value& output) {
  output = Json::Value();
  if (!reply.isObject()) return false;
  reply.removeMember("params", &output);
  // Texts and containers have no truth value: asking the library for one would throw.
  const Json::Value& result = std::as_const(reply)["result"];
  return result.isConvertibleTo(Json::booleanValue) && result.asBool();
}

std::uint32_t callServer(const RpcVoice& voice, const RpcRoute& route, const std::string& method,
                         const std::string& clientId, const Json::Value& params,
                         Json::Value& output, std::uint32_t timeoutMs) {
  if (route.client == nullptr) return error::kNoEndpoint;
  Json::Value reply;
  const std::uint32_t status = route.client->call(
      route.service, method, makeRpcRequest(clientId, params), reply, timeoutMs, route.deviceId);
  if (status != 0) {
    MOTION_LOG(voice.unit, level::kError, "%s rpc %s::%s failed: %s", voice.words,
               route.service.c_str(), method.c_str(), Pexal::PDBus::RPCServer::dumpCode(status));
    return error::kTransport;
  }
  if (readRpcReply(std::move(reply), output)) return error::kNone;
  MOTION_LOG(voice.unit, level::kError, "%s rpc %s::%s rejected, errno=0x%x", voice.words,
             route.service.c_str(), method.c_str(), Pexal::PBase::getLastErrno());
  return error::kRefused;
}

std::uint32_t sendToServer(const RpcVoice& voice, const RpcRoute& route, const std::string& method,
                           const std::string& clientId, const Json::Value& params) {
  if (route.client == nullptr) return error::kNoEndpoint;
  const std::uint32_t status = route.client->sendAction(
      route.service, method, makeRpcRequest(clientId, params), route.deviceId);
  if (status == 0) return error::kNone;
  MOTION_LOG(voice.unit, level::kError, "%s sendAction %s::%s failed: %s", voice.words,
             route.service.c_str(), method.c_str(), Pexal::PDBus::RPCServer::dumpCode(status));
  return error::kTransport;
}

}  // namespace orvane::RobotSdk
