#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lowlevel/LowLevelRpc.h"
#include "lowlevel/LowLevelStatus.h"
#include "lowlevel/MotionChannels.h"
#include "lowlevel/MotionCommands.h"
#include "lowlevel/SessionWorker.h"
#include "orvane/RobotSdk/IMotionLowLevelClient.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"

namespace orvane::RobotSdk {

/// The low-level client on the robot's board: its connection, its worker and the application's
/// callback. The session is SessionWorker's, commands and waits are MotionCommands'.
///
/// Threading contract: public operations run on any thread, the state callback included. The only
/// SDK thread is the worker of a connection, "robotSdk:LLClientShm"; it holds this object while it
/// runs, so the object may end on it, and the destructor waits for nobody. One worker runs at a
/// time: a connection made while the last one's worker is still on its way in or out is started by
/// that worker as its last act, so connect never waits. On a thread that runs an application
/// callback, disconnect returns without waiting for the worker; anywhere else it returns when the
/// worker has ended, and with it the callback.
///
/// Locks: lifecycleLock_, callbackLock_, layoutLock_ and the one of rpc_. None is held across a
/// request, a callback (the logger's included) or a wait, and none is taken under another. What a
/// control loop calls takes none of them.
class LocalLowLevelClientImpl final : public IMotionLowLevelClient,
                                      public std::enable_shared_from_this<LocalLowLevelClientImpl> {
 public:
  /// Made by std::make_shared only.
  LocalLowLevelClientImpl();
  ~LocalLowLevelClientImpl() override;
  LocalLowLevelClientImpl(const LocalLowLevelClientImpl&) = delete;
  LocalLowLevelClientImpl& operator=(const LocalLowLevelClientImpl&) = delete;

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
  struct Connection;
  using ConnectionPtr = std::shared_ptr<Connection>;
  using SharedCallback = std::shared_ptr<const LowLevelStateCallback>;
  using Request = bool (lowlevel::LowLevelRpc::*)(const char*, const Json::Value&, Json::Value&,
                                                  std::uint32_t);

  bool connectNow(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs);
  bool disconnectNow();
  [[nodiscard]] bool failConnect(const char* reason);
  bool startWorker(const ConnectionPtr& connection);
  void runWorker(Connection& connection);
  void finishWorker();
  void tell(lowlevel::ConnectionNumber connection, std::uint32_t state, std::uint32_t code);
  [[nodiscard]] bool requestInSession(lowlevel::State needed, Request request, const char* method,
                                      std::uint32_t timeoutMs);
  [[nodiscard]] bool fetchMotorLayout(MotorLayout& out, std::uint32_t timeoutMs);

  const std::string takeToken_;
  lowlevel::LowLevelStatus status_;
  lowlevel::LowLevelRpc rpc_;
  lowlevel::MotionChannels channels_;
  lowlevel::MotionCommands commands_{status_, channels_};

  Pexal::PBase::CMutex lifecycleLock_;          // guards all down to mediaBus_, and the change of
                                                // connections in status_
  lowlevel::ConnectionNumber connections_ = 0;  // made so far
  ConnectionPtr current_;                       // of the last connect
  ConnectionPtr working_;  // whose worker is it; not current_ while that waits its turn
  std::shared_ptr<IMediaBusClient> mediaBus_;

  Pexal::PBase::CMutex callbackLock_;  // guards stateCallback_
  SharedCallback stateCallback_;

  Pexal::PBase::CMutex layoutLock_;  // guards motorLayout_ and layoutCached_
  MotorLayout motorLayout_{};
  bool layoutCached_ = false;
};

}  // namespace orvane::RobotSdk
