#include "shm/Attachment.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "pbase/CThread.h"

namespace Pexal::PBase {

/// What the application gets. Lives inside a control block, which keeps the attachment.
class Attachment::Chunk final : public SharedMemBuffer {
 public:
  Chunk(Attachment& attachment, std::uint32_t index, std::uint64_t sequence)
      : attachment_(attachment), index_(index) {
    const Segment& segment = *attachment.segment_;
    payload_ = segment.payload(index);
    capacity_ = segment.geometry().chunkSize;
    sequence_ = sequence;
    setSize(segment.chunk(index).size.load(std::memory_order_relaxed));
  }
  ~Chunk() { attachment_.drop(index_); }
  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;

 private:
  Attachment& attachment_;
  const std::uint32_t index_;
};

/// Puts a chunk's object, with its control block, into its slot.
template <class T>
struct Attachment::SlotAllocator {
  using value_type = T;

  SlotAllocator(std::shared_ptr<Attachment> owner_, std::uint32_t index_)
      : owner(std::move(owner_)), index(index_) {}
  template <class U>
  SlotAllocator(const SlotAllocator<U>& other) : owner(other.owner), index(other.index) {}

  T* allocate(std::size_t count) {
    static_assert(sizeof(T) <= Slot::kSize && alignof(T) <= alignof(std::max_align_t));
    Slot& slot = owner->slots_[index];
    // Still taken: by the control block of a former object that somebody holds weakly.
    if (count != 1 || slot.isTaken.exchange(true)) return std::allocator<T>().allocate(count);
    return reinterpret_cast<T*>(slot.storage.data());
  }
  void deallocate(T* object, std::size_t count) noexcept {
    Slot& slot = owner->slots_[index];
    if (reinterpret_cast<std::byte*>(object) != slot.storage.data()) {
      std::allocator<T>().deallocate(object, count);
    } else {
      slot.isTaken = false;
    }
  }
  template <class U>
  bool operator==(const SlotAllocator<U>& other) const {
    return owner == other.owner && index == other.index;
  }

  std::shared_ptr<Attachment> owner;
  std::uint32_t index;
};

std::shared_ptr<Attachment> Attachment::join(const std::string& name,
                                             const Memory::ShmIdentity& known) {
  std::unique_ptr<Segment> segment = Segment::open(name);
  if (segment == nullptr) return nullptr;
  for (std::uint32_t place = 0; place < kPlaces; ++place) {
    if (!segment->lockPlace(place)) continue;
    return std::shared_ptr<Attachment>(new Attachment(std::move(segment), place, known));
  }
  errno = EUSERS;
  return nullptr;
}

Attachment::Attachment(std::unique_ptr<Segment> segment, std::uint32_t place,
                       const Memory::ShmIdentity& known)
    : segment_(std::move(segment)),
      place_(place),
      bit_(1U << place),
      slots_(new Slot[std::max(segment_->geometry().chunkCount, 1U)]) {
  segment_->clearPlace(place_);
  const std::uint64_t newest = identity() == known ? segment_->head().published.load() : 0;
  advance(std::max<std::uint64_t>(newest + 1, 1));
  segment_->head().joins.fetch_add(1);
}

Attachment::~Attachment() {
  leave();
}

void Attachment::leave() noexcept {
  hasLeft_ = true;
  segment_->place(place_).cursor = 0;
}

bool Attachment::isRetired() const noexcept {
  return segment_->head().retired.load() != 0;
}

void Attachment::advance(std::uint64_t next) noexcept {
  next_ = next;
  std::atomic<std::uint64_t>& cursor = segment_->place(place_).cursor;
  cursor = next;
  if (hasLeft_) cursor = 0;  // of this and leave the later one sees the other
}

/// The number of the last one that was published; 0, below every cursor, in a damaged segment. What
/// a publisher can't have written is damage.
std::uint64_t Attachment::lastThere() noexcept {
  const std::uint64_t last = segment_->head().published.load(std::memory_order_acquire);
  if (last + 1 < next_ || last + 1 == 0) damaged_ = true;
  return damaged_ ? 0 : last;
}

std::shared_ptr<SharedMemBuffer> Attachment::take() {
  const std::uint64_t last = lastThere();
  const std::uint64_t ringSize = segment_->geometry().ringSize();
  if (last >= next_ + ringSize) advance(last - ringSize + 1);
  while (next_ <= last) {
    const std::uint64_t sequence = next_;
    const std::uint32_t index = segment_->ring(sequence).load(std::memory_order_acquire);
    const bool isMine = hold(index, sequence);
    advance(sequence + 1);
    if (!isMine) continue;
    return std::allocate_shared<Chunk>(SlotAllocator<Chunk>(shared_from_this(), index), *this,
                                       index, sequence);
  }
  return nullptr;
}

bool Attachment::hold(std::uint32_t index, std::uint64_t sequence) noexcept {
  if (index >= segment_->geometry().chunkCount) return false;
  ChunkHead& chunk = segment_->chunk(index);
  if (slots_[index].isHeld.exchange(true, std::memory_order_acquire)) return false;
  chunk.holders.fetch_or(bit_);
  if (chunk.sequence.load() == sequence) return true;
  drop(index);
  return false;
}

void Attachment::drop(std::uint32_t index) noexcept {
  // In this order: the chunk isn't used again before the bit is gone, so the next hold finds the
  // slot free.
  slots_[index].isHeld.store(false, std::memory_order_release);
  segment_->chunk(index).holders.fetch_and(~bit_, std::memory_order_release);
}

void Attachment::skip() noexcept {
  const std::uint64_t last = lastThere();
  if (next_ <= last) advance(last + 1);
}

bool Attachment::sleep(const std::atomic<std::uint32_t>& word, std::uint32_t seen,
                       std::uint32_t limitMs) noexcept {
  SegmentHead& head = segment_->head();
  FutexWord& wake = segment_->place(place_).wake;
  const std::uint32_t expected = wake.load(std::memory_order_acquire);
  head.sleeping.fetch_or(bit_);
  FutexEnd end = FutexEnd::kChanged;
  if (head.published.load() < next_ && head.retired.load() == 0 && word.load() == seen) {
    const ExternalWait outside;
    end = futexWait(wake, expected, limitMs);
  }
  // The publisher takes the bit when it wakes; after a kick it costs it one needless call.
  if (end != FutexEnd::kWoken) head.sleeping.fetch_and(~bit_);
  return end != FutexEnd::kTimeOut;
}

}  // namespace Pexal::PBase
