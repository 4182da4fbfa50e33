#include "shm/RingPublisher.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/RTAbsSleep.h"

namespace Pexal::PBase {
namespace {

constexpr std::uint64_t kStalledUs = 5000;

SharedMemLoan refuse(int reason) noexcept {
  errno = reason;
  return {};
}

}  // namespace

struct RingPublisher::Chunk final : SharedMemBuffer {
  void attach(const Segment& segment, std::uint32_t index_) {
    index = index_;
    payload_ = segment.payload(index);
    capacity_ = segment.geometry().chunkSize;
  }
  void lend(std::uint32_t size) {
    isOnLoan = true;
    size_ = size;
  }

  std::uint32_t index = 0;
  bool isOnLoan = false;
  std::uint64_t publishedAs = 0;  ///< 0: its sequence is 0; free as soon as nobody holds it
};

SharedMemPublisher::~SharedMemPublisher() = default;

void SharedMemGiveBack::operator()(SharedMemBuffer* chunk) const noexcept {
  if (publisher != nullptr) publisher->giveBack(chunk);
}

RingPublisher::RingPublisher() = default;

RingPublisher::RingPublisher(std::string fileName, const Geometry& geometry)
    : fileName_(std::move(fileName)), geometry_(geometry) {
  if (writerLock_.take(fileName_) && makeSegment()) return;
  const char* const reason =
      errno == EWOULDBLOCK ? "another publisher lives" : ::strerrordesc_np(errno);
  ILogger::instance()->log(4, "pbase", "[SharedMem]can't publish %s: %s\n", fileName_.c_str(),
                           reason);
  writerLock_.release();
}

RingPublisher::~RingPublisher() {
  if (segment_ != nullptr) segment_->retire();
}

bool RingPublisher::makeSegment() noexcept try {
  std::unique_ptr<Segment> segment = Segment::create(fileName_, geometry_);
  if (segment == nullptr) return false;
  std::vector<Chunk> chunks(geometry_.chunkCount);
  for (std::uint32_t i = 0; i < chunks.size(); ++i) chunks[i].attach(*segment, i);
  segment_ = std::move(segment);
  chunks_ = std::move(chunks);
  nextChunk_ = 0;
  published_ = allTaken_ = 0;
  joins_ = 0;
  watches_ = {};
  return true;
} catch (const std::exception&) {
  errno = ENOMEM;
  return false;
}

SharedMemLoan RingPublisher::loan(std::uint32_t size, std::uint32_t flags) noexcept {
  if (segment_ == nullptr) return refuse(ENOTCONN);
  if (flags != 0) return refuse(EINVAL);
  if (chunks_.empty() || size > geometry_.chunkSize) return refuse(ENOMEM);
  if (!segment_->isSound()) {
    // Memory that is lent stays.
    if (onLoan_ > 0) return refuse(EAGAIN);
    if (!makeSegment()) return refuse(ENOTCONN);
  }
  Chunk* chunk = findFree();
  if (chunk == nullptr) chunk = awaitFree();
  if (chunk == nullptr && dropReaders()) chunk = findFree();
  if (chunk == nullptr) return refuse(EAGAIN);
  chunk->lend(size);
  ++onLoan_;
  return {chunk, SharedMemGiveBack{this}};
}

void RingPublisher::giveBack(SharedMemBuffer* buffer) noexcept {
  static_cast<Chunk*>(buffer)->isOnLoan = false;
  --onLoan_;
}

bool RingPublisher::publish(SharedMemLoan loan) noexcept {
  if (loan == nullptr || loan.get_deleter().publisher != this || !segment_->isSound()) return false;
  Chunk& chunk = static_cast<Chunk&>(*loan.release());
  chunk.isOnLoan = false;
  --onLoan_;
  chunk.publishedAs = ++published_;
  ChunkHead& head = segment_->chunk(chunk.index);
  head.size.store(chunk.size(), std::memory_order_relaxed);
  head.sequence.store(published_, std::memory_order_release);
  segment_->ring(published_).store(chunk.index, std::memory_order_release);
  segment_->head().published.store(published_);
  if (segment_->head().sleeping.load() != 0) segment_->wakeSleepers();
  return true;
}

RingPublisher::Chunk* RingPublisher::findFree() noexcept {
  if (segment_->head().joins.load(std::memory_order_acquire) != joins_) readCursors();
  if (Chunk* const chunk = findInRing()) return chunk;
  readCursors();
  return findInRing();
}

/// A reader that is awake takes a chunk in a fraction of a microsecond, one that was just woken
/// begins within some: not worth a sleep of the caller's. Waits for several, lest the two go on in
/// step, each record a transfer of the same cache lines to and fro.
RingPublisher::Chunk* RingPublisher::awaitFree() noexcept {
  const std::size_t fewAwaited = chunks_.size() * 3 / 4;
  RTAbsSleep pause;
  while (published_ - allTaken_ > fewAwaited && pause.spin()) {
    ::sched_yield();  // the reader may have been put on this very processor
    readCursors();
  }
  return findInRing();
}

RingPublisher::Chunk* RingPublisher::findInRing() noexcept {
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    Chunk& chunk = chunks_[nextChunk_];
    if (++nextChunk_ == chunks_.size()) nextChunk_ = 0;
    if (takeIfFree(chunk)) return &chunk;
  }
  return nullptr;
}

bool RingPublisher::takeIfFree(Chunk& chunk) noexcept {
  if (chunk.isOnLoan || chunk.publishedAs > allTaken_) return false;
  ChunkHead& head = segment_->chunk(chunk.index);
  if (chunk.publishedAs != 0) head.sequence.store(0);
  chunk.publishedAs = 0;
  return (head.holders.load() & kAllPlaces) == 0;
}

void RingPublisher::readCursors() noexcept {
  joins_ = segment_->head().joins.load(std::memory_order_acquire);
  allTaken_ = published_;
  for (std::uint32_t place = 0; place < kPlaces; ++place) {
    const std::uint64_t cursor = segment_->place(place).cursor.load(std::memory_order_acquire);
    if (isAwaiting(place, cursor)) allTaken_ = std::min(allTaken_, cursor - 1);
  }
}

bool RingPublisher::isAwaiting(std::uint32_t place, std::uint64_t cursor) const noexcept {
  return cursor != 0 && cursor <= published_ && cursor != watches_[place].voidCursor;
}

std::uint32_t RingPublisher::holders() const noexcept {
  std::uint32_t places = 0;
  for (const Chunk& chunk : chunks_) places |= segment_->chunk(chunk.index).holders.load();
  return places;
}

/// Drops the readers that are dead or stalled, of those for whom there is no chunk left.
bool RingPublisher::dropReaders() noexcept {
  const std::uint64_t nowUs = CTime::getCurrentMicroSecond();
  const std::uint32_t holding = holders();
  bool dropped = false;
  for (std::uint32_t place = 0; place < kPlaces; ++place) {
    const std::uint64_t cursor = segment_->place(place).cursor.load(std::memory_order_acquire);
    const bool awaits = isAwaiting(place, cursor);
    if (!awaits && (holding >> place & 1U) == 0) continue;
    if (dropIfGone(place) || (awaits && dropIfStalled(place, cursor, nowUs))) dropped = true;
  }
  return dropped;
}

bool RingPublisher::dropIfGone(std::uint32_t place) noexcept {
  if (!segment_->lockPlace(place)) return false;
  // It may have left in good order since its cursor was read.
  const bool left = segment_->place(place).cursor.load() == 0 && (holders() >> place & 1U) == 0;
  segment_->clearPlace(place);
  segment_->unlockPlace(place);
  if (!left) tell(Status::kReaderGone);
  return true;
}

bool RingPublisher::dropIfStalled(std::uint32_t place, std::uint64_t cursor,
                                  std::uint64_t nowUs) noexcept {
  Watch& watch = watches_[place];
  if (watch.cursor != cursor) {
    watch = {cursor, nowUs, 0};
    return false;
  }
  if (nowUs - watch.sinceUs < kStalledUs) return false;
  watch.voidCursor = cursor;
  tell(Status::kReaderStalled);
  return true;
}

void RingPublisher::tell(Status status) noexcept try {
  const StatusCallback callback = callback_;  // it may set another one
  if (callback) callback(status);
} catch (const std::exception& error) {
  ILogger::instance()->log(4, "pbase", "[SharedMem]status callback of %s threw: %s\n",
                           fileName_.c_str(), error.what());
} catch (...) {
  ILogger::instance()->log(4, "pbase", "[SharedMem]status callback of %s threw\n",
                           fileName_.c_str());
}

}  // namespace Pexal::PBase
