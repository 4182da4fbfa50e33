#pragma once

#include "orvane/RobotSdk/IMotionSdkService.h"
#include "pbase/ILogger.h"

namespace orvane::RobotSdk::service {

/// The application's logger callback as a sink of the process's logger: registered at most once.
///
/// Threading contract: attach and detach are called by the service, one at a time. Both may wait
/// for calls of the callback that are in flight on other threads. The callback runs on every thread
/// that logs.
class LogSink {
 public:
  /// Makes `callback` the one that is called, in place of any former one; an empty one only ends
  /// that.
  void attach(const LoggerCallback& callback);
  /// When this returns the callback isn't called any more. Nothing happens when none is attached.
  void detach();
  [[nodiscard]] bool attached() const noexcept { return registered; }

 private:
  bool registered = false;
  Pexal::ILogger::SinkId sink = 0;  // meaningful while registered
};

}  // namespace orvane::RobotSdk::service
