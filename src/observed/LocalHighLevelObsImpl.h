#pragma once

#include <cstdint>
#include <memory>

#include "observed/IHighLevelObserved.h"
#include "shm/ShareObservedReader.h"

namespace orvane::RobotSdk {

/// The observed state on the robot board, from the shared-memory buffers "motion_observed" and
/// "motion_sensor_observed".
///
/// Threading contract: two kinds of thread come here.
///  - The owner's worker calls start and stop, one at a time. stop may also run inside one of this
///    source's deliveries.
///  - The thread "robotSdk:HLLObs" reads the buffers every 20 ms. It holds this object and its
///    client strongly during such a pass and weakly between two, so the last reference to either
///    often ends there; nobody waits for that thread on itself. What it needs between passes is its
///    own (Polling), which outlives this object when it must.
/// `mutex` is the only lock of this object and a leaf: buffers are opened and closed, threads are
/// started and awaited, and records are read and delivered outside it.
class LocalHighLevelObsImpl final : public IHighLevelObserved,
                                    public std::enable_shared_from_this<LocalHighLevelObsImpl> {
 public:
  /// Made by makeLocalObserved, as part of a shared pointer.
  explicit LocalHighLevelObsImpl(std::weak_ptr<IObservedSink> owner);
  ~LocalHighLevelObsImpl() override;
  LocalHighLevelObsImpl(const LocalHighLevelObsImpl&) = delete;
  LocalHighLevelObsImpl& operator=(const LocalHighLevelObsImpl&) = delete;

  /// Opens both buffers. When one is missing the other stays open, so that the next start tries
  /// only that one. What is in the buffers now is never delivered; what comes from now on is.
  bool start() override;
  /// Returns within a few milliseconds when no delivery is under way; else waits for its end, a
  /// second at the most and not at all from inside it.
  void stop() override;

 private:
  using ReaderPtr = std::shared_ptr<Robot::Motion::ShareObservedReader>;
  class Polling;

  [[nodiscard]] bool openReaders();
  void takeNew(Polling& polling, IObservedSink& sink);

  // Changed by start and stop, under mutex.
  ReaderPtr sensorReader_;
  ReaderPtr motionReader_;
  std::shared_ptr<Polling> polling_;
};

}  // namespace orvane::RobotSdk
