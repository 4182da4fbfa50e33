#include "lowlevel/SimulationLowLevelClientImpl.h"

#include <utility>

#include "lowlevel/SimulationCommands.h"
#include "lowlevel/SimulationLowLevelImpl.h"
#include "service/Boundary.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk {

namespace error = lowlevel::error;

SimulationLowLevelClientImpl::SimulationLowLevelClientImpl() : impl_(std::make_shared<Impl>()) {}

SimulationLowLevelClientImpl::~SimulationLowLevelClientImpl() {
  guarded("the client's end", [this] { impl_->end(); });
}

bool SimulationLowLevelClientImpl::connect(std::uint32_t, std::uint32_t) {
  return guarded(
      "connect", [impl = impl_] { return impl->connect(); }, false);
}

bool SimulationLowLevelClientImpl::disconnect() {
  return guarded(
      "disconnect", [impl = impl_] { return impl->disconnect(); }, false);
}

std::uint32_t SimulationLowLevelClientImpl::getState() {
  return impl_->state();
}

std::uint32_t SimulationLowLevelClientImpl::getLastError() {
  return impl_->lastError();
}

void SimulationLowLevelClientImpl::setStateCallback(LowLevelStateCallback callback) {
  guarded("setStateCallback", [&] { impl_->setStateCallback(std::move(callback)); });
}

bool SimulationLowLevelClientImpl::setSessionFlag(bool enable) {
  return guarded(
      "setSessionFlag", [impl = impl_, enable] { return impl->setSessionFlag(enable); }, false);
}

bool SimulationLowLevelClientImpl::emergencyStop(std::uint32_t) {
  const auto stop = [this] {
    return impl_->write(lowlevel::dampingSample()) || impl_->fail(error::kWrongState);
  };
  return guarded("emergencyStop", stop, false);
}

std::shared_ptr<IMediaBusClient> SimulationLowLevelClientImpl::createMediaBusClient() {
  return guarded(
      "createMediaBusClient", [] { return service::createMediaBusClient(); },
      std::shared_ptr<IMediaBusClient>());
}

bool SimulationLowLevelClientImpl::restoreMotionControlMode(std::uint32_t) {
  return false;
}

bool SimulationLowLevelClientImpl::getMotorLayout(MotorLayout* out, std::uint32_t) {
  if (out == nullptr) return impl_->fail(error::kInvalidArgument);
  *out = lowlevel::simulationLayout();
  return true;
}

/// There are no sensors here.
bool SimulationLowLevelClientImpl::requireSensor(ObservedSensorRecord* out, std::uint32_t) {
  if (out == nullptr) return impl_->fail(error::kInvalidArgument);
  *out = {};
  return false;
}

bool SimulationLowLevelClientImpl::requireObserved(ObservedMotionRecord* out,
                                                   std::uint32_t timeoutMs) {
  return guarded(
      "requireObserved", [&] { return impl_->requireObserved(out, timeoutMs); }, false);
}

bool SimulationLowLevelClientImpl::publishMotorAction(const LowLevelMotorRecord* record,
                                                      const LowLevelTrailer*) {
  const auto publish = [&] {
    return impl_->mayCommand(record) && impl_->write(lowlevel::controlSample(*record));
  };
  return guarded("publishMotorAction", publish, false);
}

bool SimulationLowLevelClientImpl::publishMaxTorque(const LowLevelMotorRecord* record) {
  if (!impl_->mayCommand(record)) return false;
  impl_->fail(error::kNone);
  return true;
}

}  // namespace orvane::RobotSdk
