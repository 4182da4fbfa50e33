#pragma once

namespace orvane::RobotSdk {

/// The media bus client as the motion clients see it. No implementation is part of this build.
class IMediaBusClient {
 public:
  virtual ~IMediaBusClient() = default;
  virtual void stop() = 0;
};

}  // namespace orvane::RobotSdk
