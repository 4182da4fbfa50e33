#include <mutex>

#include "highlevel/ErrorCode.h"
#include "highlevel/MotionHighLevelClientImpl.h"
#include "log/Log.h"
#include "pbase/Utils.h"
#include "service/IMediaBusClient.h"
#include "service/ServiceAccess.h"

/// The media and system requests: play list, audio files, camera light, system status.
namespace orvane::RobotSdk {

/// What the client must have, and what it asks the application service for.
struct MediaRequest {
  enum class Gate { kControl, kConnection };
  Gate gate;
  const char* method;
};

namespace {

using Gate = MediaRequest::Gate;
using Lock = std::lock_guard<Pexal::PBase::CMutex>;

constexpr char kUnit[] = "MotionHighLevelClientImpl";

// Reading the camera light needs control although it changes nothing, and pausing is a kind of
// stop: the service's own vocabulary.
constexpr MediaRequest kStartPlayList{Gate::kControl, "startPlayList"};
constexpr MediaRequest kStopPlayList{Gate::kControl, "stopPlayList"};
constexpr MediaRequest kAddAudioFile{Gate::kControl, "addAudioFile"};
constexpr MediaRequest kDeleteAudioFile{Gate::kControl, "deleteAudioFile"};
constexpr MediaRequest kSetCameraLight{Gate::kControl, "setCameraLightBrightness"};
constexpr MediaRequest kGetCameraLight{Gate::kControl, "getCameraLightBrightness"};
constexpr MediaRequest kGetSystemStatus{Gate::kConnection, "getSystemStatus"};
constexpr MediaRequest kGetPlayDetail{Gate::kConnection, "getAudioPlayDetail"};
constexpr MediaRequest kGetPlayList{Gate::kConnection, "getAudioPlayList"};

Json::Value object(const char* name, const Json::Value& value) {
  Json::Value params(Json::objectValue);
  params[name] = value;
  return params;
}

}  // namespace

bool MotionHighLevelClientImpl::requestMedia(const MediaRequest& request, const Json::Value& params,
                                             std::string* outJson, std::uint32_t timeoutMs) {
  if (!(request.gate == Gate::kControl ? requireControl() : requireConnection())) return false;
  Json::Value output;
  if (!rpc(request.method, clientId(), params, output, timeoutMs)) return false;
  if (outJson != nullptr) *outJson = Pexal::Utils::jsonToString(output);
  return true;
}

bool MotionHighLevelClientImpl::requestMediaText(const MediaRequest& request,
                                                 const std::string& json, std::string* outJson,
                                                 std::uint32_t timeoutMs) {
  if (!(request.gate == Gate::kControl ? requireControl() : requireConnection())) return false;
  Json::Value params;
  return parseText(json, error::kRefused, params) &&
         requestMedia(request, params, outJson, timeoutMs);
}

bool MotionHighLevelClientImpl::startPlayList(const std::string& json, std::uint32_t timeoutMs) {
  return requestMediaText(kStartPlayList, json, nullptr, timeoutMs);
}

bool MotionHighLevelClientImpl::stopPlayList(std::uint32_t timeoutMs) {
  return requestMedia(kStopPlayList, {}, nullptr, timeoutMs);
}

bool MotionHighLevelClientImpl::pausePlayList(std::uint32_t timeoutMs) {
  return requestMedia(kStopPlayList, object("pause", true), nullptr, timeoutMs);
}

bool MotionHighLevelClientImpl::addAudioFile(const std::string& json, std::uint32_t timeoutMs) {
  return requestMediaText(kAddAudioFile, json, nullptr, timeoutMs);
}

bool MotionHighLevelClientImpl::deleteAudioFile(const std::string& json, std::uint32_t timeoutMs) {
  return requestMediaText(kDeleteAudioFile, json, nullptr, timeoutMs);
}

bool MotionHighLevelClientImpl::setCameraLightBrightness(std::uint32_t brightness,
                                                         std::uint32_t timeoutMs) {
  return requestMedia(kSetCameraLight, object("brightness", brightness), nullptr, timeoutMs);
}

bool MotionHighLevelClientImpl::getCameraLightBrightness(std::string* outJson,
                                                         std::uint32_t timeoutMs) {
  return requestMedia(kGetCameraLight, {}, outJson, timeoutMs);
}

bool MotionHighLevelClientImpl::getSystemStatus(std::string* outJson, std::uint32_t timeoutMs) {
  return requestMedia(kGetSystemStatus, {}, outJson, timeoutMs);
}

bool MotionHighLevelClientImpl::getAudioPlayDetail(std::string* outJson, std::uint32_t timeoutMs) {
  return requestMedia(kGetPlayDetail, {}, outJson, timeoutMs);
}

bool MotionHighLevelClientImpl::getAudioPlayList(const std::string& json, std::string* outJson,
                                                 std::uint32_t timeoutMs) {
  return requestMediaText(kGetPlayList, json, outJson, timeoutMs);
}

std::shared_ptr<IMediaBusClient> MotionHighLevelClientImpl::createMediaBusClient() {
  if (kind_ == Kind::kRemote) {
    MOTION_LOG(kUnit, level::kError,
               "high level createMediaBusClient only supported on local board deployment");
    return nullptr;
  }
  {
    const Lock lock(mutex_);
    if (mediaBusClient_ != nullptr) return mediaBusClient_;
  }
  if (lease_.state() == MotionLease::kDisconnected) {
    MOTION_LOG(kUnit, level::kError, "high level createMediaBusClient failed: not connected");
    return nullptr;
  }
  auto made = service::createMediaBusClient();
  if (made == nullptr) return nullptr;
  const Lock lock(mutex_);
  // Disconnected meanwhile: nobody would stop it.
  if (lease_.state() == MotionLease::kDisconnected) return nullptr;
  if (mediaBusClient_ == nullptr) mediaBusClient_ = made;
  return mediaBusClient_;
}

}  // namespace orvane::RobotSdk
