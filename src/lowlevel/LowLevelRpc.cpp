#include "lowlevel/LowLevelRpc.h"

#include <mutex>
#include <string>
#include <utility>

#include "highlevel/RpcEnvelope.h"
#include "log/Log.h"
#include "lowlevel/LowLevelStatus.h"
#include "pbase/System.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;
using Pexal::PBase::getLastErrno;
using Pexal::PDBus::RPCClient;
using Pexal::PDBus::RPCServer;

/// The reason code of a request that was made without a client.
constexpr std::uint32_t kNoClient = 25;

std::string reasonOf(const Json::Value& reply) {
  if (!reply.isObject()) return "";
  const Json::Value& reason = reply["reason"];
  return reason.isString() ? reason.asString() : "";
}

/// How a request that was never made fails.
bool hasClient(const RPCClient* client) {
  if (client == nullptr) Pexal::PBase::setLastErrno(kNoClient);
  return client != nullptr;
}

bool call(const LowLevelServer& server, RPCClient* client, const char* method,
          const Json::Value& params, Json::Value& output, std::uint32_t timeoutMs) {
  if (!hasClient(client)) {
    MOTION_LOG(kUnit, level::kError, "%srpc call %s::%s failed, errno=0x%x", server.absentWords,
               server.service, method, getLastErrno());
    return false;
  }
  Json::Value reply;
  const std::uint32_t status = client->call(
      server.service, method, makeRpcRequest(service::clientId(), params), reply, timeoutMs, "");
  if (status != 0) {
    MOTION_LOG(kUnit, level::kError, "%srpc call %s::%s failed: %s", server.transportWords,
               server.service, method, RPCServer::dumpCode(status));
    return false;
  }
  const std::string reason = reasonOf(reply);
  if (readRpcReply(std::move(reply), output)) return true;
  MOTION_LOG(kUnit, level::kError, "%srpc call %s::%s failed, errno=0x%x reason=%s",
             server.refusalWords, server.service, method, getLastErrno(), reason.c_str());
  return false;
}

}  // namespace

bool readsTrue(const Json::Value& object, const char* member) {
  if (!object.isObject()) return false;
  const Json::Value& value = object[member];  // null when missing
  return value.isConvertibleTo(Json::booleanValue) && value.asBool();
}

bool LowLevelRpc::renewMotionClient() {
  Client client = service::rpcClient(kMotionServer.name);
  const bool isThere = client != nullptr;
  const Lock lock(mutex_);
  motion_.swap(client);
  return isThere;
}

LowLevelRpc::Client LowLevelRpc::motion() const {
  const Lock lock(mutex_);
  return motion_;
}

bool LowLevelRpc::callMotion(const char* method, const Json::Value& params, Json::Value& output,
                             std::uint32_t timeoutMs) {
  return call(kMotionServer, motion().get(), method, params, output, timeoutMs);
}

bool LowLevelRpc::callCerebellum(const char* method, const Json::Value& params, Json::Value& output,
                                 std::uint32_t timeoutMs) {
  return call(kCerebellumServer, service::rpcClient(kCerebellumServer.name).get(), method, params,
              output, timeoutMs);
}

bool LowLevelRpc::sendAction(const char* method, const Json::Value& params) {
  const Client client = motion();
  if (!hasClient(client.get())) return false;
  const std::uint32_t status = client->sendAction(kMotionServer.service, method,
                                                  makeRpcRequest(service::clientId(), params), "");
  if (status == 0) return true;
  MOTION_LOG(kUnit, level::kError, "motion rpc sendAction %s::%s failed: %s", kMotionServer.service,
             method, RPCServer::dumpCode(status));
  return false;
}

}  // namespace orvane::RobotSdk::lowlevel
