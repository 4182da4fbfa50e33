#include "shm/Segment.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <new>
#include <utility>

namespace Pexal::PBase {
namespace {

using Memory::ShmFile;
using Memory::ShmIdentity;

constexpr std::uint64_t kMagic = 0x3164'6e69'6152'766f;
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kLine = 64;

/// The head's first words as a read call hands them out.
struct Start {
  std::uint64_t magic = 0;
  std::uint32_t version = 0;
  std::uint32_t chunkSize = 0;
  std::uint32_t chunkCount = 0;
};
static_assert(offsetof(Start, chunkCount) == offsetof(SegmentHead, chunkCount));
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(sizeof(SegmentHead) == 2 * kLine && sizeof(ReaderPlace) == 2 * kLine);
static_assert(sizeof(ChunkHead) == kLine);

constexpr std::size_t kRingOffset = sizeof(SegmentHead) + kPlaces * sizeof(ReaderPlace);

constexpr std::size_t wholeLines(std::size_t bytes) {
  return (bytes + kLine - 1) / kLine * kLine;
}

/// Asks for (F_WRLCK) or gives up (F_UNLCK) the lock on a place's byte.
bool changeLock(const ShmFile& file, std::uint32_t place, short type) noexcept {
  const int kept = errno;
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(sizeof(SegmentHead) + place * sizeof(ReaderPlace));
  range.l_len = 1;
  const bool done = ::fcntl(file.descriptor(), F_OFD_SETLK, &range) == 0;
  errno = kept;
  return done;
}

}  // namespace

bool Geometry::isValid() const {
  if (chunkCount == 0) return chunkSize == 0;
  return chunkCount <= kMostChunks && chunkSize >= 1 && chunkSize <= kLargestChunk;
}

std::uint32_t Geometry::ringSize() const {
  return std::bit_ceil(std::max(chunkCount, 1U));
}

std::size_t Geometry::chunksOffset() const {
  return kRingOffset + wholeLines(ringSize() * sizeof(std::uint32_t));
}

std::size_t Geometry::chunkStride() const {
  return sizeof(ChunkHead) + wholeLines(chunkSize);
}

std::size_t Geometry::size() const {
  return chunksOffset() + chunkCount * chunkStride();
}

Segment::Segment(ShmFile file, const Geometry& geometry)
    : file_(std::move(file)), geometry_(geometry), identity_(ShmIdentity::of(file_)) {}

bool Segment::map() {
  if (!mapping_.map(file_, geometry_.size(), true)) return false;
  auto* const base = static_cast<std::byte*>(mapping_.address());
  head_ = reinterpret_cast<SegmentHead*>(base);
  places_ = reinterpret_cast<ReaderPlace*>(base + sizeof(SegmentHead));
  ring_ = reinterpret_cast<std::atomic<std::uint32_t>*>(base + kRingOffset);
  chunks_ = base + geometry_.chunksOffset();
  stride_ = geometry_.chunkStride();
  ringMask_ = geometry_.ringSize() - 1;
  return true;
}

std::unique_ptr<Segment> Segment::create(const std::string& name, const Geometry& geometry) {
  ShmFile file = ShmFile::draft(name, geometry.size(), Memory::kOwnerOnly);
  if (!file.isOpen()) return nullptr;
  std::unique_ptr<Segment> segment(new Segment(std::move(file), geometry));
  if (!segment->map()) return nullptr;
  SegmentHead& head = segment->head();
  head.version = kVersion;
  head.chunkSize = geometry.chunkSize;
  head.chunkCount = geometry.chunkCount;
  head.magic = kMagic;
  const std::unique_ptr<Segment> former = open(name);
  if (!ShmFile::give(name)) return nullptr;
  if (former != nullptr) former->retire();
  return segment;
}

std::unique_ptr<Segment> Segment::open(const std::string& name) {
  ShmFile file = ShmFile::open(name, true, Memory::kOwnerOnly);
  if (!file.isOpen()) return nullptr;
  Start start;
  const bool isWhole = ::pread(file.descriptor(), &start, sizeof(start), 0) == sizeof(start);
  const Geometry geometry{start.chunkSize, start.chunkCount};
  if (!isWhole || start.magic != kMagic || start.version != kVersion || !geometry.isValid() ||
      file.size() != geometry.size()) {
    errno = EPROTO;
    return nullptr;
  }
  std::uint32_t retired = 0;
  (void)::pread(file.descriptor(), &retired, sizeof(retired), offsetof(SegmentHead, retired));
  if (retired != 0) {
    errno = ENOENT;
    return nullptr;
  }
  std::unique_ptr<Segment> segment(new Segment(std::move(file), geometry));
  return segment->map() ? std::move(segment) : nullptr;
}

bool Segment::isSound() const noexcept {
  return head_->magic.load(std::memory_order_relaxed) == kMagic && !mapping_.isLost();
}

bool Segment::lockPlace(std::uint32_t index) const noexcept {
  return changeLock(file_, index, F_WRLCK);
}

void Segment::unlockPlace(std::uint32_t index) const noexcept {
  (void)changeLock(file_, index, F_UNLCK);
}

void Segment::clearPlace(std::uint32_t index) const noexcept {
  const std::uint32_t others = ~(1U << index);
  for (std::uint32_t i = 0; i < geometry_.chunkCount; ++i) chunk(i).holders.fetch_and(others);
  head_->sleeping.fetch_and(others);
  places_[index].cursor = 0;
}

void Segment::wakePlace(std::uint32_t index) const noexcept {
  FutexWord& word = places_[index].wake;
  word.fetch_add(1);
  futexWake(word);
}

void Segment::wakeSleepers() const noexcept {
  std::uint32_t sleepers = head_->sleeping.exchange(0) & kAllPlaces;
  for (; sleepers != 0; sleepers &= sleepers - 1) {
    wakePlace(static_cast<std::uint32_t>(std::countr_zero(sleepers)));
  }
}

void Segment::retire() const noexcept {
  head_->retired = 1;
  wakeSleepers();
}

}  // namespace Pexal::PBase
