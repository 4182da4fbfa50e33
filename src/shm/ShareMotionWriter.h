#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "orvane/RobotSdk/Records.h"
#include "pbase/PrioMutex.h"
#include "pbase/SharedMem.h"
#include "shm/MotionChannel.h"
#include "shm/MotionRecords.h"

namespace Robot::Motion {

/// The writing end of a channel: made, initialised, open, closed. A closed one isn't opened again;
/// another one is made.
///
/// Threading contract: writes by one thread at a time, and not while init, open or close runs: the
/// caller sees to that, since a write takes no lock. init, open and close among themselves: any
/// thread. lock_ guards initialised_, open_ and the changes of publisher_; nothing but the
/// platform's own locks is taken under it.
class ShareMotionWriter {
 public:
  ShareMotionWriter(const ShareMotionWriter&) = delete;
  ShareMotionWriter& operator=(const ShareMotionWriter&) = delete;

  /// Becomes the publisher of the channel that `config` names under "name". False: was initialised
  /// before, there is no such text, the channel's ShareMotionDomain isn't initialised, or the
  /// platform has no publisher for it (another one lives).
  [[nodiscard]] bool init(const Json::Value& config);
  /// False before init and after close.
  [[nodiscard]] bool open();
  /// Gives the channel up. Nothing happens unless it is open.
  void close();

  /// How often a reader died or stood still for so long that it was dropped, since open.
  [[nodiscard]] std::uint64_t readersDropped() const noexcept { return readersDropped_; }

 protected:
  explicit ShareMotionWriter(MotionChannel channel) : channel_(channel) {}
  ~ShareMotionWriter();

  /// Copies a record of the channel's size into a chunk and hands that out. While every chunk is
  /// taken it tries again each millisecond, `retries` + 1 times at the most. False: not
  /// initialised, closed, or no chunk. No mutex, no allocation, no system call unless all chunks
  /// are taken or a reader sleeps.
  [[nodiscard]] bool writeRecord(const void* record, int retries);

 private:
  [[nodiscard]] Pexal::PBase::SharedMemLoan loan(int retries);

  const MotionChannel channel_;
  std::atomic<std::uint64_t> readersDropped_{0};

  Pexal::PBase::PrioMutex lock_;
  bool initialised_ = false;
  bool open_ = false;
  std::shared_ptr<Pexal::PBase::SharedMemPublisher> publisher_;
};

/// The client's end of the control channel.
class ShareMotionCtrlWriter final : public ShareMotionWriter {
 public:
  ShareMotionCtrlWriter() : ShareMotionWriter(MotionChannel::kControl) {}
  /// See writeRecord. With 5 retries it blocks for about 6 ms at the most.
  [[nodiscard]] bool write(const ShareLowLevelMotionCtrlData& record, int retries) {
    return writeRecord(&record, retries);
  }
};

/// The motion process's end of the data channel.
class ShareMotionDataPublisher final : public ShareMotionWriter {
 public:
  ShareMotionDataPublisher() : ShareMotionWriter(MotionChannel::kData) {}
  /// Wraps the observed record and writes it; see writeRecord.
  [[nodiscard]] bool publishMotionData(std::uint32_t kind,
                                       const orvane::RobotSdk::ObservedMotionRecord& observed,
                                       int retries);
};

}  // namespace Robot::Motion
