#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "orvane/RobotSdk/Export.h"

namespace orvane::RobotSdk {

/// Log sink: (level, text, length in bytes). Runs on whatever thread logs; must not call the SDK.
using LoggerCallback = std::function<void(std::uint32_t level, const char* text, int length)>;
/// A robot that answered: its device id, and its details as JSON text (or empty).
using RobotDiscoverCallback =
    std::function<void(const std::string& deviceNo, const std::string& detail)>;

class ORVANE_API IMotionSdkService {
 public:
  virtual void shutdown() = 0;
  virtual bool isMultiDevice() = 0;
  virtual void attachLoggerCallback(LoggerCallback callback) = 0;
  virtual void setNetworkInterface(const char* name) = 0;
  virtual void attachRobotDiscoverCallback(RobotDiscoverCallback callback) = 0;
  virtual bool discoverRobotDevice(std::uint32_t windowMs) = 0;
  virtual bool initial(const char* configPath, const char* clientId,
                       std::uint32_t roudiWaitSeconds) = 0;

  static IMotionSdkService* instance();
  static const char* version();

 protected:
  ~IMotionSdkService() = default;
};

}  // namespace orvane::RobotSdk
