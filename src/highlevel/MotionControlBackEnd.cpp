#include "highlevel/MotionControlBackEnd.h"

#include <mutex>
#include <utility>

#include "highlevel/ErrorCode.h"
#include "highlevel/MotionHighLevelClientImpl.h"
#include "log/Log.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk {

using Pexal::PBase::CMutex;

BrainHighMotionControl::BrainHighMotionControl(std::weak_ptr<MotionHighLevelClientImpl> owner)
    : MotionControlBackEnd(
          std::move(owner),
          {{"BrainHighMotionControl", "brain motion"}, "brainServer", true, "brain"}) {}

CereHighMotionControl::CereHighMotionControl(std::weak_ptr<MotionHighLevelClientImpl> owner,
                                             bool remote)
    : MotionControlBackEnd(std::move(owner), {{"CereHighMotionControl", "cere motion"},
                                              remote ? "robotServer" : "cerebellumServer",
                                              false,
                                              "cerebellum"}) {}

MotionControlBackEnd::MotionControlBackEnd(std::weak_ptr<MotionHighLevelClientImpl> owner,
                                           const Board& board)
    : owner_(std::move(owner)), board_(board) {}

bool MotionControlBackEnd::setup() {
  {
    const std::lock_guard<CMutex> lock(mutex_);
    if (rpcClient_ != nullptr) return true;
    service_ = service::applicationServiceName(board_.brainService);
    rpcClient_ = service::rpcClient(board_.server);
    if (rpcClient_ != nullptr) return true;
  }
  MOTION_LOG(board_.voice.unit, level::kError, "%s control setup failed: %s rpc client unavailable",
             board_.voice.words, board_.server);
  return false;
}

bool MotionControlBackEnd::teardown() {
  std::shared_ptr<Pexal::PDBus::RPCClient> released;
  const std::lock_guard<CMutex> lock(mutex_);
  released.swap(rpcClient_);
  return true;
}

bool MotionControlBackEnd::disableAction(std::uint32_t timeoutMs) {
  return plainAction("disableAction", timeoutMs);
}

bool MotionControlBackEnd::standing(std::uint32_t timeoutMs) {
  return plainAction("standing", timeoutMs);
}

bool MotionControlBackEnd::laying(std::uint32_t timeoutMs) {
  return plainAction("laying", timeoutMs);
}

bool MotionControlBackEnd::recoveryStand(std::uint32_t timeoutMs) {
  return plainAction("recoveryStand", timeoutMs);
}

bool MotionControlBackEnd::velocityMove(float lineX, float lineY, float velocity,
                                        std::uint32_t timeoutMs) {
  Json::Value params(Json::objectValue);
  params["lineVelocityX"] = static_cast<double>(lineX);
  params["lineVelocityY"] = static_cast<double>(lineY);
  params["velocity"] = static_cast<double>(velocity);
  return startMotionAction("walking", params, timeoutMs);
}

bool MotionControlBackEnd::stopMotionAction(std::uint32_t timeoutMs) {
  return command("stopMotionAction", {}, timeoutMs);
}

bool MotionControlBackEnd::emergencyStopMotion(std::uint32_t timeoutMs) {
  return command("emergencyStopMotion", {}, timeoutMs);
}

bool MotionControlBackEnd::setMotionMasterRole(std::uint32_t timeoutMs) {
  Json::Value params(Json::objectValue);
  params["master"] = board_.masterRole;
  return command("setMotionMasterRole", params, timeoutMs);
}

bool MotionControlBackEnd::getMotorLayout(Json::Value& out, std::uint32_t timeoutMs) {
  return request("getMotorLayout", {}, out, timeoutMs);
}

bool MotionControlBackEnd::queryMotionState(Json::Value& out, std::uint32_t timeoutMs) {
  return request("queryMotionState", {}, out, timeoutMs);
}

bool MotionControlBackEnd::getMotionCapabilities(Json::Value& out, std::uint32_t timeoutMs) {
  return request("getMotionCapabilities", {}, out, timeoutMs);
}

bool MotionControlBackEnd::setMotionActionParams(const Json::Value& params,
                                                 std::uint32_t timeoutMs) {
  return command("setMotionActionParams", params, timeoutMs);
}

bool MotionControlBackEnd::setMotionObservedEnable(const Json::Value& params,
                                                   std::uint32_t timeoutMs) {
  return command("setMotionObservedEnable", params, timeoutMs);
}

bool MotionControlBackEnd::startMotionAction(const std::string& action, const Json::Value& params,
                                             std::uint32_t timeoutMs) {
  Json::Value request(Json::objectValue);
  request["action"] = action;
  if (!params.isNull()) request["params"] = params;
  return command("startMotionAction", request, timeoutMs);
}

/// Goes through the virtual operation, so that an override of it covers the shortcuts.
bool MotionControlBackEnd::plainAction(const char* action, std::uint32_t timeoutMs) {
  return startMotionAction(action, {}, timeoutMs);
}

bool MotionControlBackEnd::command(const char* method, const Json::Value& params,
                                   std::uint32_t timeoutMs) {
  Json::Value discarded;
  return request(method, params, discarded, timeoutMs);
}

bool MotionControlBackEnd::request(const char* method, const Json::Value& params, Json::Value& out,
                                   std::uint32_t timeoutMs) {
  const auto owner = owner_.lock();
  if (owner == nullptr) return false;
  RpcRoute route{nullptr, {}, owner->deviceId()};
  {
    const std::lock_guard<CMutex> lock(mutex_);
    route.client = rpcClient_;
    route.service = service_;
  }
  const std::uint32_t code =
      callServer(board_.voice, route, method, owner->clientId(), params, out, timeoutMs);
  if (code != error::kNone) owner->recordError(code);
  return code == error::kNone;
}

}  // namespace orvane::RobotSdk
