#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "shm/Futex.h"
#include "shm/ShmFile.h"
#include "shm/ShmMapping.h"

namespace Pexal::PBase {

// A publisher's segment, and how both sides use it.
//
//   head      what it is (written before it has its name)
//             published, retired                   the publisher writes
//             sleeping: a bit per place, joins     readers write; the publisher takes the bits
//   places    16: cursor                           the reader that has the place writes
//                 wake word                        who wakes it writes
//   ring      per sequence number: a chunk         the publisher writes
//   chunks    sequence, size, payload              the publisher writes
//             holders: a bit per place             readers write
//
// A place belongs to the reader whose descriptor has the lock (F_OFD_SETLK) on the place's byte of
// the file. The kernel takes it away when the reader's process dies, however it dies. Who can get
// that lock knows that nobody is there, and holds it while he tidies up. (A child that a reader
// forks and that goes on without exec keeps the place.)
//
// Publishing number s in chunk c:             Taking number s (a cursor's value):
//   payload, size                               published >= s               (acquire)
//   chunk.sequence = s            (release)     c = ring[s], in range?
//   ring[s] = c                   (release)     chunk.holders |= bit         (seq_cst)
//   published = s                 (seq_cst)     chunk.sequence == s?         (seq_cst)
//   sleeping != 0?                (seq_cst)       no: holders &= ~bit, it's gone
//     takes the bits, wakes their places        cursor = s + 1               (seq_cst)
//                                               ... the application reads the payload
// Using chunk c again:                          holders &= ~bit              (release)
//   every cursor that counts is past it (acquire)
//   chunk.sequence = 0            (seq_cst)   Going to sleep:
//   chunk.holders == 0?           (seq_cst)     word = place.wake            (acquire)
//     no: somebody reads it, take another       sleeping |= bit              (seq_cst)
//                                               published < cursor?          (seq_cst)
// Waking a place: ++wake, futex wake              futex wait while wake == word
//
// - Whole chunks: of the reader's "bit, then sequence" and the publisher's "sequence, then bits"
// one
//   sees the other's, so a chunk that a reader reads is never written. Cursors don't matter here:
//   a reader that was dropped and moves again is as safe as any other.
// - No loss: a chunk isn't used again while a cursor is at or before its number. The cursor moves
//   after the bit is set, so there is no moment without one of the two. The publisher remembers the
//   lowest cursor and reads them again when it finds no chunk below it, or when `joins` tells of a
//   new reader.
// - No lost wake-up: of the reader's "bit, then published" and the publisher's "published, then
// bits"
//   one sees the other's; the wake word has changed when the bit was taken before the reader
//   sleeps.
//
// When one dies at any point:
// - The publisher: what it hasn't published was never seen, nobody waits for it. Its lock on the
// name
//   falls with it; a successor makes a new segment, then sets `retired` in the old one and wakes
//   its readers. Readers that this doesn't reach see the new inode under the name within 100 ms.
//   What was published is taken first.
// - A reader: its bits and cursor stay. The publisher finds them when it runs out of chunks, gets
// the
//   place's lock and removes them; the same happens when another reader takes the place.
// - A stopped reader keeps the chunks it holds. Its unread ones are void when it took none for 5 ms
//   and the publisher has no other: the publisher ignores its cursor until that moves.
//
// Nothing that the other side can write is trusted: geometry is read once, before mapping; indices,
// sizes and places are checked at each use; the publisher keeps its own account of numbers and
// chunks. A segment that somebody wrecks loses records, and is left for a new one.

constexpr std::uint32_t kPlaces = 16;
constexpr std::uint32_t kAllPlaces = (1U << kPlaces) - 1;
constexpr std::uint32_t kLargestChunk = 1U << 20;
constexpr std::uint32_t kMostChunks = 1024;

/// Chunks of a segment; what else there is follows from it.
struct Geometry {
  std::uint32_t chunkSize = 0;
  std::uint32_t chunkCount = 0;

  /// None at all is fine too: a publisher without a pool.
  [[nodiscard]] bool isValid() const;
  /// At least as many as chunks, so that a number's place in the ring isn't reused before the
  /// number was taken by all. A power of two.
  [[nodiscard]] std::uint32_t ringSize() const;
  [[nodiscard]] std::size_t chunksOffset() const;
  [[nodiscard]] std::size_t chunkStride() const;
  [[nodiscard]] std::size_t size() const;
};

struct SegmentHead {
  std::atomic<std::uint64_t> magic;
  std::atomic<std::uint32_t> version;
  std::atomic<std::uint32_t> chunkSize;
  std::atomic<std::uint32_t> chunkCount;
  // On one line, since whoever needs one of them needs the others: readers write there only when
  // they come and when they go to sleep.
  alignas(64) std::atomic<std::uint64_t> published;
  std::atomic<std::uint32_t> sleeping;
  std::atomic<std::uint32_t> joins;    ///< how often a reader came
  std::atomic<std::uint32_t> retired;  ///< 1: nothing will be published any more
};

struct ReaderPlace {
  alignas(64) std::atomic<std::uint64_t> cursor;  ///< what it takes next; 0: it awaits nothing
  alignas(64) FutexWord wake;  ///< the publisher's line, lest it takes the reader's
};

struct alignas(64) ChunkHead {
  std::atomic<std::uint64_t> sequence;  ///< 0 while it isn't published
  std::atomic<std::uint32_t> holders;
  std::atomic<std::uint32_t> size;
};

/// A mapped segment. The two sides' protocols are in RingPublisher and Attachment.
///
/// Threading contract: the lock operations by one thread at a time; the rest is atomic.
class Segment {
 public:
  /// A new one under the name; the former one, if any, is retired. The caller has the name's
  /// WriterLock. Null, with errno, when the system refuses.
  [[nodiscard]] static std::unique_ptr<Segment> create(const std::string& name,
                                                       const Geometry& geometry);
  /// What has the name. Null, with errno: ENOENT nothing, or its publisher has ended, EPERM
  /// it's another user's, EPROTO it isn't a segment, or what the system says.
  [[nodiscard]] static std::unique_ptr<Segment> open(const std::string& name);

  [[nodiscard]] const Geometry& geometry() const { return geometry_; }
  [[nodiscard]] const Memory::ShmIdentity& identity() const { return identity_; }
  /// False once somebody has cut it short or wiped it: nobody sees what is written here any more.
  [[nodiscard]] bool isSound() const noexcept;

  [[nodiscard]] SegmentHead& head() const { return *head_; }
  [[nodiscard]] ReaderPlace& place(std::uint32_t index) const { return places_[index]; }
  [[nodiscard]] std::atomic<std::uint32_t>& ring(std::uint64_t sequence) const {
    return ring_[sequence & ringMask_];
  }
  [[nodiscard]] ChunkHead& chunk(std::uint32_t index) const {
    return *reinterpret_cast<ChunkHead*>(chunks_ + index * stride_);
  }
  [[nodiscard]] std::byte* payload(std::uint32_t index) const {
    return chunks_ + index * stride_ + sizeof(ChunkHead);
  }

  /// Takes a place's lock; false when another descriptor has it.
  [[nodiscard]] bool lockPlace(std::uint32_t index) const noexcept;
  void unlockPlace(std::uint32_t index) const noexcept;
  /// Removes what the place's last reader left. With the place's lock.
  void clearPlace(std::uint32_t index) const noexcept;

  void wakePlace(std::uint32_t index) const noexcept;
  void wakeSleepers() const noexcept;
  /// Tells the readers that nothing will come here any more.
  void retire() const noexcept;

 private:
  Segment(Memory::ShmFile file, const Geometry& geometry);
  [[nodiscard]] bool map();

  Memory::ShmFile file_;
  const Geometry geometry_;
  const Memory::ShmIdentity identity_;
  Memory::ShmMapping mapping_;
  SegmentHead* head_ = nullptr;
  ReaderPlace* places_ = nullptr;
  std::atomic<std::uint32_t>* ring_ = nullptr;
  std::byte* chunks_ = nullptr;
  std::size_t stride_ = 0;
  std::uint64_t ringMask_ = 0;
};

}  // namespace Pexal::PBase
