#pragma once

#include <cstdint>
#include <memory>

#include "orvane/RobotSdk/IMotionLowLevelClient.h"

namespace orvane::RobotSdk {

/// The low-level client away from the robot's board: motor commands and observed state as DDS
/// samples, without a session and without a server.
///
/// Everything is Impl's. The application may release its last reference to the client inside the
/// state callback, so each operation that calls it holds Impl on its own.
class SimulationLowLevelClientImpl final : public IMotionLowLevelClient {
 public:
  class Impl;

  /// Reads the environment.
  SimulationLowLevelClientImpl();
  /// Disconnects, and tells nobody.
  ~SimulationLowLevelClientImpl() override;
  SimulationLowLevelClientImpl(const SimulationLowLevelClientImpl&) = delete;
  SimulationLowLevelClientImpl& operator=(const SimulationLowLevelClientImpl&) = delete;

  bool disconnect() override;
  std::uint32_t getState() override;
  std::uint32_t getLastError() override;
  bool setSessionFlag(bool enable) override;
  bool emergencyStop(std::uint32_t timeoutMs) override;
  void setStateCallback(LowLevelStateCallback callback) override;
  std::shared_ptr<IMediaBusClient> createMediaBusClient() override;
  bool restoreMotionControlMode(std::uint32_t timeoutMs) override;
  bool connect(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs) override;
  bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) override;
  bool requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs) override;
  bool requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs) override;
  bool publishMotorAction(const LowLevelMotorRecord* record,
                          const LowLevelTrailer* trailer) override;
  bool publishMaxTorque(const LowLevelMotorRecord* record) override;

 private:
  const std::shared_ptr<Impl> impl_;
};

}  // namespace orvane::RobotSdk
