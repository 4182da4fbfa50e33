#include "observed/IHighLevelObserved.h"

#include <json/value.h>

#include <mutex>
#include <utility>

#include "pbase/CTime.h"

namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;

/// A switch in a request that the robot or the application wrote: what has no truth value is off.
bool readSwitch(const Json::Value& params, const char* name) {
  if (!params.isObject()) {
    return false;
  }
  const Json::Value& value = params[name];
  return (value.isBool() || value.isNumeric()) && value.asBool();
}

/// The time is forgotten before the switch turns, so that nobody sees the switch on with a time
/// from before it was off.
void applySwitch(bool wanted, std::atomic<bool>& enabled, std::atomic<std::uint64_t>& lastUs) {
  if (wanted != enabled) {
    lastUs = 0;
    enabled = wanted;
  }
}

bool isFresh(std::uint64_t lastUs, std::uint64_t maxAgeUs) {
  return lastUs != 0 && lastUs + maxAgeUs >= Pexal::PBase::CTime::getCurrentMicroSecond();
}

}  // namespace

IHighLevelObserved::IHighLevelObserved(std::weak_ptr<IObservedSink> owner)
    : client(std::move(owner)) {
  latestMotion.valid = 1;
}

void IHighLevelObserved::setObservedEnable(const Json::Value& params) {
  const bool motion = readSwitch(params, "motionEnable");
  const bool sensor = readSwitch(params, "sensorEnable");
  const Lock lock(mutex);
  applySwitch(motion, motionEnabled, lastMotionUs);
  applySwitch(sensor, sensorEnabled, lastSensorUs);
}

bool IHighLevelObserved::keep(const ObservedMotionRecord& record) {
  const Lock lock(mutex);
  latestMotion = record;
  if (motionEnabled) lastMotionUs = Pexal::PBase::CTime::getCurrentMicroSecond();
  return motionEnabled;
}

bool IHighLevelObserved::keep(const ObservedSensorRecord& record) {
  const Lock lock(mutex);
  latestSensor = record;
  if (sensorEnabled) lastSensorUs = Pexal::PBase::CTime::getCurrentMicroSecond();
  return sensorEnabled;
}

bool IHighLevelObserved::copyPower(ObservedPower& out, std::uint64_t maxAgeUs) {
  const Lock lock(mutex);
  if (!isFresh(lastMotionUs, maxAgeUs)) {
    return false;
  }
  out = latestMotion.power;
  return true;
}

bool IHighLevelObserved::copySensor(ObservedSensorRecord& out, std::uint64_t maxAgeUs) {
  const Lock lock(mutex);
  if (!isFresh(lastSensorUs, maxAgeUs)) {
    return false;
  }
  out = latestSensor;
  return true;
}

}  // namespace orvane::RobotSdk
