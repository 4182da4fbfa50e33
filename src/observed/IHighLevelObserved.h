#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "orvane/RobotSdk/Records.h"
#include "pbase/CMutex.h"

namespace orvane::RobotSdk {

/// Takes observed records from a source; called on the source's threads with no lock held.
class IObservedSink {
 public:
  virtual void deliverMotionObserved(const ObservedMotionRecord& record) = 0;
  virtual void deliverSensorObserved(const ObservedSensorRecord& record) = 0;

 protected:
  ~IObservedSink() = default;
};

/// Base of the observed-state sources.
///
/// Threading contract: start and stop are called by the owner's worker; the getters and
/// setObservedEnable from any thread; records arrive on the source's own threads. `mutex` is a leaf
/// lock: nothing else is locked and nothing is called under it.
class IHighLevelObserved {
 public:
  /// Opens what the source needs and starts its thread. True when running (also when it already
  /// was).
  virtual bool start() = 0;
  /// Stops the thread and releases the readers; no delivery begins after it returns, and none runs
  /// any more: it waits a second for one, unless it is called from inside it. Nothing happens when
  /// not started.
  virtual void stop() = 0;
  virtual ~IHighLevelObserved() = default;

  /// Switches the two streams by "motionEnable" and "sensorEnable" (absent: false). A stream whose
  /// switch changes forgets when it last received.
  void setObservedEnable(const Json::Value& params);

  /// Copies the newest record's power block / sensor record when it was stored at most `maxAgeUs`
  /// microseconds ago. False, with `out` untouched, otherwise.
  [[nodiscard]] bool copyPower(ObservedPower& out, std::uint64_t maxAgeUs);
  [[nodiscard]] bool copySensor(ObservedSensorRecord& out, std::uint64_t maxAgeUs);

 protected:
  explicit IHighLevelObserved(std::weak_ptr<IObservedSink> owner);

  /// Stores a record as the newest of its stream. True when it is to be delivered: while the
  /// stream's switch is on.
  [[nodiscard]] bool keep(const ObservedMotionRecord& record);
  [[nodiscard]] bool keep(const ObservedSensorRecord& record);

  bool started = false;                        // under mutex
  std::atomic<bool> motionEnabled{false};      // changed under mutex, read anywhere
  std::atomic<bool> sensorEnabled{false};      // changed under mutex, read anywhere
  std::atomic<std::uint64_t> lastMotionUs{0};  // 0: nothing stored since the switch changed
  std::atomic<std::uint64_t> lastSensorUs{0};  // 0: nothing stored since the switch changed
  Pexal::PBase::CMutex mutex;                  // guards started, the readers and the two records
  ObservedSensorRecord latestSensor{};
  ObservedMotionRecord latestMotion{};
  std::weak_ptr<IObservedSink> client;
};

/// The source for an external host: two DDS topics, which the robots of a domain share. It leaves
/// out what a writer sends that announces another device than `deviceId`; with an empty id it
/// takes everything.
[[nodiscard]] std::shared_ptr<IHighLevelObserved> makeRemoteObserved(
    std::weak_ptr<IObservedSink> owner, std::string deviceId);

/// The source for the robot board: two shared-memory buffers that the motion process keeps up to
/// date. Its records are that process's, byte for byte.
[[nodiscard]] std::shared_ptr<IHighLevelObserved> makeLocalObserved(
    std::weak_ptr<IObservedSink> owner);

}  // namespace orvane::RobotSdk
