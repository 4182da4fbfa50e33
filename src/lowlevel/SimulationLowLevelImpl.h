#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>

#include "lowlevel/LowLevelStatus.h"
#include "lowlevel/SimulationLowLevelClientImpl.h"
#include "lowlevel/SimulationSettings.h"
#include "lowlevel/SimulationTransport.h"
#include "msg/MotionTypes.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"

namespace orvane::RobotSdk {
namespace lowlevel {

/// A failure that may come back with every sample: told on standard error at once, then once a
/// second at the most, with how many were left out. Any thread; never waits for who reads that.
class Complaint {
 public:
  explicit Complaint(const char* what) : what_(what) {}
  void tell(const std::exception& reason);
  /// The next one is told at once.
  void beginAnew() { dueMs_ = 0; }

 private:
  const char* const what_;
  std::atomic<std::uint64_t> dueMs_{0};
  std::atomic<std::uint32_t> leftOut_{0};
};

}  // namespace lowlevel

/// The connection, the newest samples and the application's callback.
///
/// Threading contract: operations run on any thread. One thread per connection,
/// "robotSdk:LLClientSim", takes the samples; it calls nothing of the application. The state
/// callback runs on the thread whose call changes the state, with no lock held, so it may call
/// every operation; calls of different threads may tell of their changes in another order. A
/// command is written with no lock held, to the connection that was prepared just before.
///
/// Locks: lifecycleLock_, then mutex_. The first is held while DDS entities are opened and while
/// the thread is joined, the second for copies only. requireObserved waits with mutex_; it ends
/// with its connection, even when another one begins before it has woken.
class SimulationLowLevelClientImpl::Impl {
 public:
  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  bool connect();
  bool disconnect();
  /// The client's end: disconnects for good, without telling.
  void end();

  [[nodiscard]] lowlevel::State state() const { return state_; }
  [[nodiscard]] std::uint32_t lastError() const { return lastError_; }
  bool fail(std::uint32_t code) {
    lastError_ = code;
    return false;
  }
  void setStateCallback(LowLevelStateCallback callback);
  bool setSessionFlag(bool enable);
  bool requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs);
  /// Whether a motor command may go out; false, with the error code, when not.
  bool mayCommand(const LowLevelMotorRecord* record);
  /// False, with the error code, when no motor command may go out any more, or it couldn't.
  bool write(const msg::dds_::MotionCtrl_& sample);

 private:
  using SharedCallback = std::shared_ptr<const LowLevelStateCallback>;

  // With lifecycleLock_ held:
  [[nodiscard]] bool open();
  void close();

  void change(lowlevel::State state, std::uint32_t code);
  void tell(lowlevel::State state, std::uint32_t code);

  // The thread's:
  void receive(lowlevel::SimulationTransport& transport);
  void takeObserved(lowlevel::SimulationTransport& transport);
  void takeRemoteControl(lowlevel::SimulationTransport& transport);

  const lowlevel::SimulationSettings settings_ = lowlevel::SimulationSettings::fromEnvironment();

  std::atomic<lowlevel::State> state_{lowlevel::kDisconnected};  // changes under mutex_
  std::atomic<std::uint32_t> lastError_{lowlevel::error::kNone};
  std::atomic<bool> stopping_{true};  // changes under mutex_; true: no connection
  lowlevel::Complaint openFailure_{"open transport"};
  lowlevel::Complaint readFailure_{"read"};
  lowlevel::Complaint writeFailure_{"write control"};

  Pexal::PBase::CMutex lifecycleLock_;  // guards the following, and connections_ for writing
  std::unique_ptr<Pexal::PBase::CThreadLite> thread_;
  bool ended_ = false;

  Pexal::PBase::CMutex mutex_;  // guards the following
  Pexal::PBase::CCondition arrived_;
  lowlevel::ConnectionNumber connections_ = 0;  // begun so far
  std::shared_ptr<lowlevel::SimulationTransport> transport_;
  SharedCallback stateCallback_;
  msg::dds_::MotionObserved_ observed_{};  // the newest
  std::uint64_t received_ = 0;             // in this connection
  std::uint64_t consumed_ = 0;             // the newest one that was handed out, by that count
  msg::dds_::RemoteControl_ remoteControl_{};
  std::uint64_t remoteControlMs_ = 0;  // when it came; 0: none yet
};

}  // namespace orvane::RobotSdk
