#include "shm/ShareMotionWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <mutex>
#include <utility>

#include "log/Log.h"
#include "pbase/CThread.h"
#include "shm/ShareMotionDomain.h"

namespace Robot::Motion {
namespace {

namespace level = orvane::RobotSdk::level;
using Pexal::PBase::PrioMutex;
using Pexal::PBase::SharedMemLoan;
using Lock = std::lock_guard<PrioMutex>;

constexpr std::uint32_t kLoanFlags = 0;
constexpr std::uint32_t kRetryMs = 1;

}  // namespace

ShareMotionWriter::~ShareMotionWriter() {
  if (publisher_ != nullptr) publisher_->setStatusCallback({});
}

bool ShareMotionWriter::init(const Json::Value& config) {
  const Lock lock(lock_);
  if (initialised_) return false;
  const ChannelStart start = startOn(channel_, config);
  if (start.node == nullptr) return false;
  auto publisher = start.node->publisher(start.name, rowOf(channel_).pool);
  if (publisher == nullptr || !publisher->isReady()) return false;
  publisher_ = std::move(publisher);
  initialised_ = true;
  return true;
}

bool ShareMotionWriter::open() {
  const Lock lock(lock_);
  if (publisher_ == nullptr) return false;
  if (open_) return true;
  // Counted, not logged: it is told from inside a write.
  publisher_->setStatusCallback([this](auto /*status*/) { ++readersDropped_; });
  open_ = true;
  return true;
}

void ShareMotionWriter::close() {
  std::shared_ptr<Pexal::PBase::SharedMemPublisher> released;
  const Lock lock(lock_);
  if (!open_) return;
  publisher_->setStatusCallback({});
  released.swap(publisher_);
  open_ = false;
}

SharedMemLoan ShareMotionWriter::loan(int retries) {
  const std::uint32_t size = rowOf(channel_).recordSize;
  SharedMemLoan chunk = publisher_->loan(size, kLoanFlags);
  while (chunk == nullptr && errno == EAGAIN && retries >= 0) {
    --retries;
    Pexal::PBase::CThread::sleep(kRetryMs);
    chunk = publisher_->loan(size, kLoanFlags);
  }
  return chunk;
}

bool ShareMotionWriter::writeRecord(const void* record, int retries) {
  if (publisher_ == nullptr) return false;
  const MotionChannelRow& row = rowOf(channel_);
  SharedMemLoan chunk = loan(retries);
  if (chunk == nullptr) {
    if (errno == ENOMEM) {
      MOTION_LOG(kChannelUnit, level::kError, "%s data size %zu out of range", row.shortName,
                 std::size_t{row.recordSize});
    }
    return false;
  }
  std::memcpy(chunk->payload(), record, row.recordSize);
  chunk->setSize(row.recordSize);
  return publisher_->publish(std::move(chunk));
}

bool ShareMotionDataPublisher::publishMotionData(
    std::uint32_t kind, const orvane::RobotSdk::ObservedMotionRecord& observed, int retries) {
  ShareLowLevelMotionData record{};
  record.kind = kind;
  record.marker = 1;
  std::fill(std::begin(record.filler), std::end(record.filler), std::uint8_t{0xFF});
  record.observed = observed;
  return writeRecord(&record, retries);
}

}  // namespace Robot::Motion
