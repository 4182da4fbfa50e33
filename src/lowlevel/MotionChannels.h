#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "lowlevel/SendGate.h"
#include "shm/ShareMotionWriter.h"
#include "shm/ShareObservedReader.h"

namespace orvane::RobotSdk::lowlevel {

/// The client's ends of the shared memory: the control writer and the readers of the two observed
/// buffers. All three are there, or none.
///
/// Threading contract: open, isOpen and close on the worker. The control writer and the observed
/// reader are used by who holds the gate; the worker takes it, too, before it changes them. The
/// sensor reader is used by any number of threads at once, without the gate, each inside a
/// SensorUse: close takes the reader away first and frees it when no use of it is left. (A shared
/// pointer that is swapped atomically would need a lock on the path; keeping every reader until the
/// client ends would let its memory grow with each connection.)
class MotionChannels {
 public:
  using Reader = Robot::Motion::ShareObservedReader;
  using Writer = Robot::Motion::ShareMotionCtrlWriter;

  MotionChannels() = default;
  MotionChannels(const MotionChannels&) = delete;
  MotionChannels& operator=(const MotionChannels&) = delete;

  /// Opens all three. False, with the cause in the log and nothing kept: one of them failed.
  [[nodiscard]] bool open();
  [[nodiscard]] bool isOpen() const noexcept { return sensorOwner_ != nullptr; }
  /// Waits for who holds the gate or uses the sensor reader, which is done soon once the state has
  /// left "connected" and "prepared".
  void close();

  [[nodiscard]] SendGate& gate() noexcept { return gate_; }
  // With the gate; null while closed.
  [[nodiscard]] Writer* writer() const noexcept { return writer_.get(); }
  [[nodiscard]] Reader* observed() const noexcept { return observed_.get(); }

  /// While one lives, the reader that it gives isn't freed.
  class SensorUse {
   public:
    explicit SensorUse(MotionChannels& channels) noexcept : channels_(channels) {
      // Counted before it looks; close takes the reader away before it looks at the count. In the
      // one order of these four steps, either this finds no reader or close finds this.
      channels_.sensorUses_.fetch_add(1);
      reader_ = channels_.sensor_.load();
    }
    ~SensorUse() { channels_.sensorUses_.fetch_sub(1); }
    SensorUse(const SensorUse&) = delete;
    SensorUse& operator=(const SensorUse&) = delete;
    /// Null while closed.
    [[nodiscard]] Reader* reader() const noexcept { return reader_; }

   private:
    MotionChannels& channels_;
    Reader* reader_;
  };

 private:
  SendGate gate_;
  std::shared_ptr<Writer> writer_;
  std::shared_ptr<Reader> observed_;

  std::shared_ptr<Reader> sensorOwner_;  // the worker's
  std::atomic<Reader*> sensor_{nullptr};
  std::atomic<std::uint32_t> sensorUses_{0};
};

}  // namespace orvane::RobotSdk::lowlevel
