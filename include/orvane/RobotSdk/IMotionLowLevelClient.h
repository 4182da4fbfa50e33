#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "orvane/RobotSdk/Export.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk {

class IMediaBusClient;

using LowLevelStateCallback = std::function<void(std::uint32_t state, std::uint32_t lastError)>;

class ORVANE_API IMotionLowLevelClient {
 public:
  virtual bool disconnect() = 0;
  virtual std::uint32_t getState() = 0;
  virtual std::uint32_t getLastError() = 0;
  virtual bool setSessionFlag(bool enable) = 0;
  virtual bool emergencyStop(std::uint32_t timeoutMs) = 0;
  virtual void setStateCallback(LowLevelStateCallback callback) = 0;
  virtual std::shared_ptr<IMediaBusClient> createMediaBusClient() = 0;
  virtual bool restoreMotionControlMode(std::uint32_t timeoutMs) = 0;
  virtual bool connect(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs) = 0;
  virtual bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) = 0;
  virtual bool requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs) = 0;
  virtual bool requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs) = 0;
  virtual bool publishMotorAction(const LowLevelMotorRecord* record,
                                  const LowLevelTrailer* trailer) = 0;
  virtual bool publishMaxTorque(const LowLevelMotorRecord* record) = 0;

  virtual ~IMotionLowLevelClient();

  static std::shared_ptr<IMotionLowLevelClient> create();
};

}  // namespace orvane::RobotSdk
