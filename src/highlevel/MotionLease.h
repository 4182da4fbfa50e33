#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "pbase/CMutex.h"

namespace orvane::RobotSdk {

/// A client's connections are numbered from 1, so that what one of them began can't end in the
/// next.
using ConnectionNumber = std::uint64_t;

/// What the lease needs of the client around it. Called with no lock held, but for recordError,
/// which is called under the client's mutex too and must not lock.
class ILeaseHost {
 public:
  /// A request to the client's own service; a failure is logged and recorded.
  virtual bool rpc(const char* method, const std::string& clientId, const Json::Value& params,
                   Json::Value& output, std::uint32_t timeoutMs) = 0;
  virtual bool sendAction(const char* method, const std::string& clientId,
                          const Json::Value& params) = 0;
  /// Starts the observed-state source and sets the back end up; true when both run.
  virtual bool startMotion() = 0;
  virtual bool claimMasterRole(std::uint32_t timeoutMs) = 0;
  /// Tells the application, unless that connection is over.
  virtual void notifyConnect(ConnectionNumber connection, std::uint32_t state,
                             std::uint32_t code) = 0;
  virtual void recordError(std::uint32_t code) = 0;
  /// Ends the worker's wait.
  virtual void wakeWorker() = 0;

 protected:
  ~ILeaseHost() = default;
};

/// The lease of motion control: who speaks, whether control is wanted and held, and the steps that
/// acquire, renew and give it back.
///
///     0 disconnected --begin--> 1 connected --take succeeds, or control restored--> 2 controlling
///     2 --release, renewal lost, revoked, preempted--> 1          any --end--> 0
///
/// Threading contract: the operations of each section below run on the threads that it names. Every
/// change of state happens under the client's mutex and is for the connection that began it: a
/// request that is answered after its connection ended changes nothing. The atomics are changed
/// under that mutex too; they are atomics so that the gates and getters read them without it. The
/// mutex is never held across a request, a notification or a log line.
class MotionLease {
 public:
  static constexpr std::uint32_t kDisconnected = 0;
  static constexpr std::uint32_t kConnected = 1;
  static constexpr std::uint32_t kControlling = 2;

  MotionLease(ILeaseHost& host, Pexal::PBase::CMutex& clientMutex)
      : host_(host), mutex_(clientMutex) {}

  // --- any thread ---
  [[nodiscard]] std::uint32_t state() const noexcept { return state_; }
  /// The identity to speak under: the controller id while control is held or preempted, else the
  /// SDK client's name.
  [[nodiscard]] std::string clientId() const;
  /// States the wish to hold control, for at most `limitMs` (0: 10000) from now. False:
  /// disconnected.
  bool wantControl(std::uint32_t limitMs);
  /// States the wish to give control back. False: not held.
  bool wantRelease();
  /// A ".control.status" event; any document.
  void onControlStatus(const Json::Value& payload);
  /// The last connection, lasting or ended.
  [[nodiscard]] ConnectionNumber connection() const noexcept { return connection_; }
  /// True while that connection lasts.
  [[nodiscard]] bool isCurrent(ConnectionNumber connection) const noexcept {
    return connection_ == connection && state_ != kDisconnected;
  }

  // --- any thread, with the client's mutex held ---
  struct Begun {
    ConnectionNumber connection;
    std::optional<std::string> leftover;  ///< controller id that the last connection still holds
  };
  /// From 0 to 1.
  [[nodiscard]] Begun begin(std::uint32_t requestedLeaseMs, const std::string& ownId);
  /// To 0. The controller id stays, for the worker to give back.
  void end();

  // --- the connection's worker ---
  void beginWork(ConnectionNumber connection);
  /// Carries out the wish: acquires or releases. May take two requests' time and a pause of 3000
  /// ms.
  void step();
  /// Renews when it is time. True: control was lost.
  bool renew();
  /// When there is something to do next: at most 60 s ahead, and not in the past unless step or
  /// renew has something to do now.
  [[nodiscard]] std::uint64_t nextWorkMs(std::uint64_t nowMs) const;
  /// Gives back what the ended connection holds.
  void giveBackHeld();

  /// Gives that grant back, one-way, whatever comes of it. Any thread.
  void giveBack(const std::string& controller);

 private:
  [[nodiscard]] bool serving() const { return connection_ == served_; }
  [[nodiscard]] bool canAcquire() const;
  [[nodiscard]] bool canRelease() const;
  [[nodiscard]] std::uint64_t renewalIntervalMs() const;

  void acquire(std::uint64_t nowMs);
  void giveUp(std::uint64_t deadlineMs);
  void take(std::uint64_t nowMs);
  bool requestControl(Json::Value& grant);
  void becomeController(const Json::Value& grant, std::uint64_t nowMs);
  void retryLater(const char* what, std::uint64_t nowMs);
  void release();
  bool lose(std::uint64_t renewedSinceMs);

  void fail(std::uint32_t code);

  enum class StatusChange { kNone, kRestored, kLost };  // what the application is told
  /// With the mutex held.
  StatusChange applyStatus(bool controlled, const std::string& controller);

  ILeaseHost& host_;
  Pexal::PBase::CMutex&
      mutex_;  // the client's; guards the two ids, releasing_ and every change of the atomics

  std::string clientId_;
  std::string ownId_;       // the SDK client's name as of begin
  bool releasing_ = false;  // the release request is on its way; under mutex_

  std::atomic<ConnectionNumber> connection_{0};
  std::atomic<std::uint32_t> state_{kDisconnected};
  std::atomic<bool> wantControl_{false};
  std::atomic<bool> preempted_{false};
  std::atomic<std::uint32_t> requestedLeaseMs_{0};
  std::atomic<std::uint32_t> grantedLeaseMs_{60000};
  std::atomic<std::uint64_t> controlSinceMs_{0};     // acquired or last renewed; 0: not held
  std::atomic<std::uint64_t> acquireDeadlineMs_{0};  // 0: none

  // The worker's own.
  ConnectionNumber served_ = 0;
  std::uint64_t nextActionMs_ = 0;  // 0: now
  std::uint64_t lastRetryLogMs_ = 0;
};

}  // namespace orvane::RobotSdk
