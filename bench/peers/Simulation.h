#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/RobotSdk.h"
#include "peers/Observers.h"
#include "peers/RawDds.h"
#include "peers/SdkSession.h"

/// The low-level client on an external host, and libddsc doing the same.
namespace bench {

/// The other side of both: {"domain", "writes": true: 500 motion samples a second, at times that
/// keep no step with whoever looks for them}. {"do": "matched"} gives {"writers"}: how many write
/// motor commands to it.
///
/// Threading: one thread writes.
class Simulator final : public Role {
 public:
  explicit Simulator(const Json::Value& arguments);
  ~Simulator() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  void write() const;

  RawParticipant participant_;
  dds_entity_t commands_;
  dds_entity_t observed_;
  std::atomic<bool> stopping_{false};
  std::thread writer_;
};

/// Sends commands for twelve motors. Beside "run": {"do": "allocations", "count"} gives
/// {"allocations"}, per command, of the calling thread.
class CommanderRole : public AskingRole {
 public:
  Json::Value handle(const Json::Value& command) override;
};

/// With publishMotorAction.
class SdkCommander final : public CommanderRole {
 public:
  explicit SdkCommander(const Json::Value& arguments);

 private:
  bool ask() override;

  SdkSession session_;
  std::shared_ptr<orvane::RobotSdk::IMotionLowLevelClient> client_;
  orvane::RobotSdk::LowLevelMotorRecord record_{};
};

/// With dds_write of a sample that is ready. {"domain"}.
class RawCommander final : public CommanderRole {
 public:
  explicit RawCommander(const Json::Value& arguments);

 private:
  bool ask() override;

  RawParticipant participant_;
  dds_entity_t writer_;
  orvane::msg::dds_::MotionCtrl_ sample_{};
};

/// A thread that asks for observed samples, one after the other.
class RequirerRole : public ObserverRole {
 protected:
  static constexpr std::uint32_t kWaitMs = 100;

  void start(void (*look)(RequirerRole& self));
  void stop();
  std::atomic<bool> stopping_{false};

 private:
  std::thread caller_;
};

/// With requireObserved.
class SdkRequirer final : public RequirerRole {
 public:
  explicit SdkRequirer(const Json::Value& arguments);
  ~SdkRequirer() override;

 private:
  void attach() override;
  void detach() override;

  SdkSession session_;
  std::shared_ptr<orvane::RobotSdk::IMotionLowLevelClient> client_;
};

/// With dds_take once a millisecond, on a thread that wakes the caller, as the library does;
/// {"domain", "callerPolls": true: on the caller's own}.
class RawRequirer final : public RequirerRole {
 public:
  explicit RawRequirer(const Json::Value& arguments);
  ~RawRequirer() override;

 private:
  using Sample = orvane::msg::dds_::MotionObserved_;

  void attach() override;
  void detach() override;
  [[nodiscard]] bool take(Sample& sample) const;
  void poll();
  void await();

  const bool callerPolls_;
  RawParticipant participant_;
  dds_entity_t topic_ = 0;
  dds_entity_t reader_ = 0;
  std::thread poller_;
  std::mutex mutex_;  // guards the following
  std::condition_variable arrived_;
  Sample newest_{};
  bool fresh_ = false;
};

}  // namespace bench
