#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "orvane/RobotSdk/Export.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk {

class IMediaBusClient;  // not available in this build: createMediaBusClient always returns empty

using ConnectCallback = std::function<void(std::uint32_t state, std::uint32_t code)>;
using EventCallback = std::function<void(const std::string& topic, const std::string& detail)>;
using MotionObservedCallback = std::function<void(const ObservedMotionRecord& record)>;
using SensorObservedCallback = std::function<void(const ObservedSensorRecord& record)>;

class ORVANE_API IMotionHighLevelClient {
 public:
  virtual bool disconnect() = 0;
  virtual bool releaseMotionControl() = 0;
  virtual std::uint32_t getState() = 0;
  virtual std::uint32_t getLastError() = 0;
  virtual bool connect(std::uint32_t leaseHintMs) = 0;
  virtual void setSensorObservedCallback(SensorObservedCallback callback) = 0;
  virtual void setEventCallback(EventCallback callback) = 0;
  virtual void setConnectCallback(ConnectCallback callback) = 0;
  virtual std::shared_ptr<IMediaBusClient> createMediaBusClient() = 0;
  virtual void setMotionObservedCallback(MotionObservedCallback callback) = 0;
  virtual bool getPowerObserved(ObservedPower* out, std::uint32_t maxAgeUs) = 0;
  virtual bool getSensorObserved(ObservedSensorRecord* out, std::uint32_t maxAgeMs) = 0;
  virtual bool stopPlayList(std::uint32_t timeoutMs) = 0;
  virtual bool pausePlayList(std::uint32_t timeoutMs) = 0;
  virtual bool getAudioPlayDetail(std::string* outJson, std::uint32_t timeoutMs) = 0;
  virtual bool getCameraLightBrightness(std::string* outJson, std::uint32_t timeoutMs) = 0;
  virtual bool setCameraLightBrightness(std::uint32_t brightness, std::uint32_t timeoutMs) = 0;
  virtual bool startPlayList(const std::string& json, std::uint32_t timeoutMs) = 0;
  virtual bool addAudioFile(const std::string& json, std::uint32_t timeoutMs) = 0;
  virtual bool deleteAudioFile(const std::string& json, std::uint32_t timeoutMs) = 0;
  virtual bool getAudioPlayList(const std::string& json, std::string* outJson,
                                std::uint32_t timeoutMs) = 0;
  virtual bool stopMotionAction(std::uint32_t timeoutMs) = 0;
  virtual bool takeMotionControl(std::uint32_t acquireLimitMs) = 0;
  virtual bool emergencyStopMotion(std::uint32_t timeoutMs) = 0;
  virtual bool recoveryStand(std::uint32_t timeoutMs) = 0;
  virtual bool queryMotionState(std::string* outJson, std::uint32_t timeoutMs) = 0;
  virtual bool getSystemStatus(std::string* outJson, std::uint32_t timeoutMs) = 0;
  virtual bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) = 0;
  virtual bool getMotionCapabilities(std::string* outJson, std::uint32_t timeoutMs) = 0;
  virtual bool setMotionActionParams(const std::string& paramsJson, std::uint32_t timeoutMs) = 0;
  virtual bool setMotionObservedEnable(const std::string& json, std::string* outJson,
                                       std::uint32_t timeoutMs) = 0;
  virtual bool startMotionAction(const std::string& action, const std::string& paramsJson,
                                 std::uint32_t timeoutMs) = 0;
  virtual bool disableAction(std::uint32_t timeoutMs) = 0;
  virtual bool laying(std::uint32_t timeoutMs) = 0;
  virtual bool standing(std::uint32_t timeoutMs) = 0;
  virtual bool velocityMove(float lineX, float lineY, float velocity, std::uint32_t timeoutMs) = 0;

  virtual ~IMotionHighLevelClient();

  static std::shared_ptr<IMotionHighLevelClient> create(bool asMaster);
  static std::shared_ptr<IMotionHighLevelClient> create(std::string deviceId);
  /// A text literal names a device; without this overload it would convert to bool.
  static std::shared_ptr<IMotionHighLevelClient> create(const char* deviceId) {
    return create(std::string(deviceId != nullptr ? deviceId : ""));
  }
};

}  // namespace orvane::RobotSdk
