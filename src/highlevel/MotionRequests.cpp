#include <mutex>

#include "highlevel/ErrorCode.h"
#include "highlevel/MotionHighLevelClientImpl.h"
#include "pbase/Utils.h"
#include "service/ServiceAccess.h"

/// The motion commands and queries: gates and texts here, requests in the back end. A null output
/// means that the caller doesn't want the result.
namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;
using Pexal::Utils::jsonToString;

constexpr RpcVoice kVoice{"MotionHighLevelClientImpl", "high level"};

}  // namespace

// --- gates, texts and the client's own service ---

bool MotionHighLevelClientImpl::require(bool holds, std::uint32_t code) {
  if (!holds) recordError(code);
  return holds;
}

bool MotionHighLevelClientImpl::requireControl() {
  return require(lease_.state() == MotionLease::kControlling, error::kNoControl);
}

bool MotionHighLevelClientImpl::requireConnection() {
  return require(lease_.state() != MotionLease::kDisconnected, error::kNotConnected);
}

/// An empty text leaves `out` as it is; false, with `code` recorded, when the text isn't JSON.
bool MotionHighLevelClientImpl::parseText(const std::string& text, std::uint32_t code,
                                          Json::Value& out) {
  return require(text.empty() || Pexal::Utils::stringToJson(text, out), code);
}

std::shared_ptr<IHighLevelMotionControl> MotionHighLevelClientImpl::motionControl() {
  const Lock lock(mutex_);
  return motionControl_;
}

std::shared_ptr<IHighLevelObserved> MotionHighLevelClientImpl::observed() {
  const Lock lock(mutex_);
  return observed_;
}

RpcRoute MotionHighLevelClientImpl::route() {
  const Lock lock(mutex_);
  return {rpcClient_, serviceName_, deviceId_};
}

bool MotionHighLevelClientImpl::rpc(const char* method, const std::string& clientId,
                                    const Json::Value& params, Json::Value& output,
                                    std::uint32_t timeoutMs) {
  const std::uint32_t code =
      callServer(kVoice, route(), method, clientId, params, output, timeoutMs);
  return require(code == error::kNone, code);
}

bool MotionHighLevelClientImpl::sendAction(const char* method, const std::string& clientId,
                                           const Json::Value& params) {
  const std::uint32_t code = sendToServer(kVoice, route(), method, clientId, params);
  return require(code == error::kNone, code);
}

// --- commands: need control ---

bool MotionHighLevelClientImpl::stopMotionAction(std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->stopMotionAction(timeoutMs);
}

bool MotionHighLevelClientImpl::emergencyStopMotion(std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->emergencyStopMotion(timeoutMs);
}

bool MotionHighLevelClientImpl::recoveryStand(std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->recoveryStand(timeoutMs);
}

bool MotionHighLevelClientImpl::disableAction(std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->disableAction(timeoutMs);
}

bool MotionHighLevelClientImpl::laying(std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->laying(timeoutMs);
}

bool MotionHighLevelClientImpl::standing(std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->standing(timeoutMs);
}

bool MotionHighLevelClientImpl::velocityMove(float lineX, float lineY, float velocity,
                                             std::uint32_t timeoutMs) {
  return requireControl() && motionControl()->velocityMove(lineX, lineY, velocity, timeoutMs);
}

bool MotionHighLevelClientImpl::startMotionAction(const std::string& action,
                                                  const std::string& paramsJson,
                                                  std::uint32_t timeoutMs) {
  Json::Value params(Json::objectValue);
  return requireControl() && parseText(paramsJson, error::kBadText, params) &&
         motionControl()->startMotionAction(action, params, timeoutMs);
}

bool MotionHighLevelClientImpl::setMotionActionParams(const std::string& paramsJson,
                                                      std::uint32_t timeoutMs) {
  Json::Value parsed(Json::objectValue);
  if (!requireControl() || !parseText(paramsJson, error::kBadText, parsed)) return false;
  Json::Value params(Json::objectValue);
  params["params"] = parsed;
  return motionControl()->setMotionActionParams(params, timeoutMs);
}

// --- queries and switches: need a connection ---

bool MotionHighLevelClientImpl::setMotionObservedEnable(const std::string& json,
                                                        std::string* outJson,
                                                        std::uint32_t timeoutMs) {
  Json::Value params;
  if (!requireConnection() || !parseText(json, error::kBadText, params)) return false;
  const bool done = motionControl()->setMotionObservedEnable(params, timeoutMs);
  if (!require(done, error::kRefused)) return false;  // whatever kept it from being done
  if (const auto source = observed()) source->setObservedEnable(params);
  if (outJson != nullptr) *outJson = jsonToString(params);
  return true;
}

bool MotionHighLevelClientImpl::queryMotionState(std::string* outJson, std::uint32_t timeoutMs) {
  Json::Value motionState;
  if (!requireConnection() || !motionControl()->queryMotionState(motionState, timeoutMs)) {
    return false;
  }
  if (motionState.isNull()) motionState = Json::Value(Json::objectValue);
  if (outJson != nullptr) *outJson = jsonToString(motionState);
  return true;
}

bool MotionHighLevelClientImpl::getMotionCapabilities(std::string* outJson,
                                                      std::uint32_t timeoutMs) {
  Json::Value capabilities;
  if (!requireConnection() || !motionControl()->getMotionCapabilities(capabilities, timeoutMs)) {
    return false;
  }
  if (outJson != nullptr) *outJson = jsonToString(capabilities);
  return true;
}

bool MotionHighLevelClientImpl::getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) {
  {
    const Lock lock(layoutMutex_);
    if (layoutValid_) {
      if (out != nullptr) *out = layout_;
      return true;
    }
  }
  Json::Value document;
  if (!requireConnection() || !motionControl()->getMotorLayout(document, timeoutMs)) return false;
  MotorLayout fetched{};
  if (!require(service::parseMotorLayout(document, fetched), error::kRefused)) return false;
  const Lock lock(layoutMutex_);
  layout_ = fetched;
  layoutValid_ = true;
  if (out != nullptr) *out = fetched;
  return true;
}

bool MotionHighLevelClientImpl::getPowerObserved(ObservedPower* out, std::uint32_t maxAgeUs) {
  if (!require(out != nullptr, error::kNotConnected) || !requireConnection()) return false;
  const auto source = observed();
  return require(source != nullptr && source->copyPower(*out, maxAgeUs), error::kNoFreshData);
}

bool MotionHighLevelClientImpl::getSensorObserved(ObservedSensorRecord* out,
                                                  std::uint32_t maxAgeMs) {
  if (!require(out != nullptr, error::kNotConnected) || !requireConnection()) return false;
  const auto source = observed();
  const std::uint64_t maxAgeUs = std::uint64_t{maxAgeMs} * 1000;
  return require(source != nullptr && source->copySensor(*out, maxAgeUs), error::kNoFreshData);
}

}  // namespace orvane::RobotSdk
