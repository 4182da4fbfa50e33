#include "service/RobotDiscovery.h"

#include <exception>
#include <mutex>
#include <utility>

#include "log/Log.h"
#include "pbase/CTime.h"
#include "pbase/Utils.h"
#include "service/CallbackScope.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr char kUnit[] = "RobotDiscovery";
constexpr char kRequestEvent[] = "robotServer.discoverDevice.request";
constexpr char kResponseEvent[] = "robotServer.discoverDevice.response";

bool publishRequest(Pexal::PDBus::IEventBus& bus, std::uint32_t openMs) noexcept {
  try {
    return bus.publish(kRequestEvent, Json::Value(), openMs);
  } catch (...) {
    return false;
  }
}

}  // namespace

void RobotDiscovery::setCallback(RobotDiscoverCallback next) {
  // Shared, not copied: a response in flight may still run the former one, and a callback keeps its
  // own state from one response to the next.
  std::shared_ptr<const RobotDiscoverCallback> held;
  if (next) held = std::make_shared<const RobotDiscoverCallback>(std::move(next));
  const std::lock_guard lock(mutex);
  held.swap(discoverCallback);
}

bool RobotDiscovery::hasCallback() const {
  return currentCallback() != nullptr;
}

std::shared_ptr<const RobotDiscoverCallback> RobotDiscovery::currentCallback() const {
  const std::lock_guard lock(mutex);
  return discoverCallback;
}

void RobotDiscovery::listen(const std::shared_ptr<RobotDiscovery>& self,
                            Pexal::PDBus::IEventBus& bus) {
  bus.subscribe(kResponseEvent,
                Pexal::PDBus::EventHandler::bind(std::weak_ptr<RobotDiscovery>(self),
                                                 &RobotDiscovery::onResponse));
}

bool RobotDiscovery::request(Pexal::PDBus::IEventBus& bus, std::uint32_t windowMs) {
  const std::uint64_t now = Pexal::PBase::CTime::getCurrentMilliSecond();
  const std::uint64_t formerEnd = discoverOverAt;
  const std::uint64_t newEnd = now + windowMs;
  const bool open = now < formerEnd;
  if (!open || newEnd > formerEnd) {
    discoverOverAt = newEnd;
    const auto overAt = static_cast<unsigned long long>(newEnd);
    if (open) {
      MOTION_LOG(kUnit, level::kInfo, "extend discover window by %ums (overAt=%llu)", windowMs,
                 overAt);
    } else {
      MOTION_LOG(kUnit, level::kInfo, "start new discover window: %ums (overAt=%llu)", windowMs,
                 overAt);
    }
  }
  const std::uint64_t remainingMs = discoverOverAt - now;
  if (publishRequest(bus, static_cast<std::uint32_t>(remainingMs))) return true;
  discoverOverAt = formerEnd;
  MOTION_LOG(kUnit, level::kError, "publish request discover robot device failed,please retry");
  return false;
}

void RobotDiscovery::onResponse(const std::string& /*topic*/, const Json::Value& payload) {
  if (Pexal::PBase::CTime::getCurrentMilliSecond() > discoverOverAt) return;
  if (!payload.isObject()) return;
  const Json::Value& deviceNo = payload["deviceNo"];  // null when missing
  if (!deviceNo.isString()) return;
  const std::string device = deviceNo.asString();
  if (device.empty()) return;
  const auto callback = currentCallback();
  if (callback == nullptr) return;  // shut down meanwhile

  try {
    const Json::Value& detail = payload["detail"];
    const std::string text = detail.empty() ? std::string() : Pexal::Utils::jsonToString(detail);
    const CallbackScope scope;
    (*callback)(device, text);
  } catch (const std::exception& error) {
    MOTION_LOG(kUnit, level::kWarning, " discover callback threw: %s", error.what());
  } catch (...) {
    MOTION_LOG(kUnit, level::kWarning, " discover callback threw");
  }
}

}  // namespace orvane::RobotSdk::service
