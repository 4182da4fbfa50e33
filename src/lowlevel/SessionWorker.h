#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "lowlevel/LowLevelRpc.h"
#include "lowlevel/LowLevelStatus.h"
#include "lowlevel/MotionChannels.h"
#include "lowlevel/MotionCommands.h"
#include "pbase/CSemaphore.h"

namespace orvane::RobotSdk::lowlevel {

/// What the application asked of one connection.
struct SessionWish {
  const ConnectionNumber connection;
  const std::uint32_t observedHz;
  const std::uint32_t leaseTimeoutMs;
  std::atomic<bool> enabled{false};  ///< the motors' drive; outlives a lost session
  Pexal::PBase::CSemaphore wake{0};  ///< posted when there is something to look at
};

/// The work-mode session of one connection: takes it, keeps it, switches the motors' drive, takes
/// another one when it is lost, and gives it back.
///
///     1 connecting --taken, channels open--> 2 connected --enabled, "ready"--> 3 prepared
///     3 --disabled, "ready"--> 2        2, 3 --session lost--> 4 --taken--> 2
///
/// Threading contract: serve and leave run on the connection's worker, one after the other, with no
/// lock held; everything here but the wish is the worker's own. The application is told on that
/// thread. What a request brings back after the connection ended changes nothing but the session
/// number, so that the session can be given back.
class SessionWorker {
 public:
  /// Tells the application, unless that connection is over.
  using Tell = std::function<void(std::uint32_t state, std::uint32_t code)>;

  SessionWorker(SessionWish& wish, const std::string& takeToken, LowLevelStatus& status,
                LowLevelRpc& rpc, MotionChannels& channels, MotionCommands& commands, Tell tell);

  /// Returns when the connection is over.
  void serve();
  /// Gives the session back and closes the channels.
  void leave();

 private:
  [[nodiscard]] bool isServing() const;
  [[nodiscard]] bool holdSession();
  [[nodiscard]] bool takeSession();
  void adoptSession(const Json::Value& grant);
  void keepAlive();
  [[nodiscard]] std::uint32_t renewIntervalMs() const;
  [[nodiscard]] bool renew();
  [[nodiscard]] bool driveMotionEnable();
  void driveSwitched(bool enable);
  void driveNotReady(bool enable);
  [[nodiscard]] bool driveFailed(const Json::Value& answer);
  void releaseSession();
  void rest(std::uint32_t ms);
  void backOff(std::uint32_t ms);
  void fail(std::uint32_t code);
  [[nodiscard]] bool failTold(std::uint32_t code);

  SessionWish& wish_;
  const std::string& takeToken_;
  LowLevelStatus& status_;
  LowLevelRpc& rpc_;
  MotionChannels& channels_;
  MotionCommands& commands_;
  const Tell tell_;

  std::uint32_t reconnectBackoffMs_ = 3000;
  std::uint32_t fixedRenewMs_ = 0;  // 0: a third of the lease
  std::uint32_t leaseMs_ = 60000;   // the basis of that third: what the server granted last
  std::uint32_t observedHz_;        // asked for first, then what the server granted last

  std::uint64_t lastRenewMs_ = 0;
  std::uint64_t lastLossMs_ = 0;            // of a session
  std::uint64_t nextPrepareAttemptMs_ = 0;  // 0: now
  std::uint64_t lastWaitLogMs_ = 0;
};

}  // namespace orvane::RobotSdk::lowlevel
