#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "orvane/RobotSdk/IMotionSdkService.h"
#include "pbase/CMutex.h"
#include "pdbus/IEventBus.h"

namespace orvane::RobotSdk::service {

/// Finds robots: asks on the event bus, and hands the answers that arrive while a window is open to
/// the application. It keeps no list; what answers twice is reported twice.
///
/// Threading contract: everything but onResponse is called by the service, one operation at a time.
/// onResponse runs on the event bus's threads, side by side with all of it and without the
/// service's lock. mutex is a leaf lock; the application's callback runs with no lock held.
class RobotDiscovery {
 public:
  /// Replaces the callback; an empty one switches reports off.
  void setCallback(RobotDiscoverCallback next);
  [[nodiscard]] bool hasCallback() const;

  /// Hears responses on `bus` from now on. The same object on the same bus again hears each once.
  static void listen(const std::shared_ptr<RobotDiscovery>& self, Pexal::PDBus::IEventBus& bus);

  /// Opens a window of `windowMs` milliseconds, or extends the open one (never shortens it), and
  /// asks the robots to answer, those included that appear while the window is open. False, with
  /// the window as it was, when the request can't be published.
  bool request(Pexal::PDBus::IEventBus& bus, std::uint32_t windowMs);

  /// Ends the window: later responses are dropped.
  void closeWindow() noexcept { discoverOverAt = 0; }

 private:
  void onResponse(const std::string& topic, const Json::Value& payload);
  [[nodiscard]] std::shared_ptr<const RobotDiscoverCallback> currentCallback() const;

  /// Last millisecond of the window; 0 when none was opened.
  std::atomic<std::uint64_t> discoverOverAt{0};
  mutable Pexal::PBase::CMutex mutex;  // guards discoverCallback
  std::shared_ptr<const RobotDiscoverCallback> discoverCallback;
};

}  // namespace orvane::RobotSdk::service
