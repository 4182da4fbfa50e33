#include <mutex>
#include <utility>

#include "highlevel/MotionHighLevelClientImpl.h"
#include "log/Log.h"
#include "pbase/CTime.h"
#include "pbase/Utils.h"
#include "service/Boundary.h"
#include "service/CallbackScope.h"

namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;

constexpr char kUnit[] = "MotionHighLevelClientImpl";
constexpr std::uint64_t kCallbackPatienceMs = 1000;
constexpr std::uint32_t kPollMs = 2;

/// Robots that share a domain share the event topics, too. An event that doesn't name its device,
/// and any event for a client without a device id, is everybody's.
bool concerns(const std::string& deviceId, const Json::Value& payload) {
  if (deviceId.empty() || !payload.isObject()) return true;
  const Json::Value& deviceNo = payload["deviceNo"];  // null when missing
  if (!deviceNo.isString()) return true;
  const std::string named = deviceNo.asString();
  return named.empty() || named == deviceId;
}

}  // namespace

template <class Function>
void MotionHighLevelClientImpl::setCallback(const char* name, Shared<Function>& slot,
                                            Function callback) {
  Shared<Function> replacement;  // and what it replaced: the application's own, freed unlocked
  if (callback) replacement = std::make_shared<const Function>(std::move(callback));
  {
    const Lock lock(mutex_);
    if (lease_.state() == MotionLease::kDisconnected) {
      slot.swap(replacement);
      return;
    }
  }
  MOTION_LOG(kUnit, level::kWarning, " set %s callback rejected: must call before connect", name);
}

/// Calls the application, outside the mutex, unless that connection is over.
template <class Function, class... Arguments>
void MotionHighLevelClientImpl::callBack(const char* name, const Shared<Function>& slot,
                                         ConnectionNumber connection,
                                         const Arguments&... arguments) {
  Shared<Function> callback;
  {
    const Lock lock(mutex_);
    if (slot == nullptr || !lease_.isCurrent(connection)) return;
    callback = slot;
    ++callbacksRunning_;
  }
  {
    const CallbackScope scope;
    guarded(name, [&] { (*callback)(arguments...); });
  }
  const Lock lock(mutex_);
  --callbacksRunning_;
}

void MotionHighLevelClientImpl::setConnectCallback(ConnectCallback callback) {
  setCallback("connect", connectCallback_, std::move(callback));
}

void MotionHighLevelClientImpl::setEventCallback(EventCallback callback) {
  setCallback("event", eventCallback_, std::move(callback));
}

void MotionHighLevelClientImpl::setMotionObservedCallback(MotionObservedCallback callback) {
  setCallback("motion observed", motionCallback_, std::move(callback));
}

void MotionHighLevelClientImpl::setSensorObservedCallback(SensorObservedCallback callback) {
  setCallback("sensor observed", sensorCallback_, std::move(callback));
}

void MotionHighLevelClientImpl::notifyConnect(ConnectionNumber connection, std::uint32_t state,
                                              std::uint32_t code) {
  callBack("connect callback", connectCallback_, connection, state, code);
}

void MotionHighLevelClientImpl::deliverMotionObserved(const ObservedMotionRecord& record) {
  callBack("motion observed callback", motionCallback_, lease_.connection(), record);
}

void MotionHighLevelClientImpl::deliverSensorObserved(const ObservedSensorRecord& record) {
  callBack("sensor observed callback", sensorCallback_, lease_.connection(), record);
}

void MotionHighLevelClientImpl::onHostEvent(const std::string& topic, const Json::Value& payload) {
  if (!concerns(deviceId_, payload)) return;
  {
    const Lock lock(mutex_);
    if (eventCallback_ == nullptr) return;
  }
  const Json::Value detail = payload.isObject() ? payload["detail"] : Json::Value();
  callBack("event callback", eventCallback_, lease_.connection(), topic,
           Pexal::Utils::jsonToString(detail));
}

void MotionHighLevelClientImpl::onControlStatus(const std::string& /*topic*/,
                                                const Json::Value& payload) {
  if (concerns(deviceId_, payload)) lease_.onControlStatus(payload);
}

/// The application may free what its callbacks use once disconnect has returned.
void MotionHighLevelClientImpl::awaitCallbacks() {
  using Pexal::PBase::CTime;
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kCallbackPatienceMs;
  while (CTime::getCurrentMilliSecond() < deadline) {
    {
      const Lock lock(mutex_);
      if (callbacksRunning_ == 0) return;
    }
    Pexal::PBase::CThread::sleep(kPollMs);
  }
}

}  // namespace orvane::RobotSdk
