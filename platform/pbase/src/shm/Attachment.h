#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "pbase/SharedMem.h"
#include "shm/Segment.h"

namespace Pexal::PBase {

/// A reader's place at one publisher's segment (the reader's half of the protocol in Segment.h).
/// Everything that was taken keeps it: the place is free again when the last chunk is dropped.
///
/// Threading contract: one thread takes, skips and sleeps. Chunks are dropped, and kick and leave
/// are called, on any thread. No locks; after join nothing allocates, unless somebody keeps a weak
/// pointer to a chunk that is over.
class Attachment : public std::enable_shared_from_this<Attachment> {
 public:
  /// Takes a place at what has the name. What was published before is skipped if it is `known`.
  /// Null, with errno: as Segment::open, or EUSERS when all places are taken.
  [[nodiscard]] static std::shared_ptr<Attachment> join(const std::string& name,
                                                        const Memory::ShmIdentity& known);
  ~Attachment();
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;

  [[nodiscard]] const Memory::ShmIdentity& identity() const { return segment_->identity(); }
  /// True once the publisher, or its successor, has said that nothing comes any more. Read it
  /// before taking what is left.
  [[nodiscard]] bool isRetired() const noexcept;
  /// False when the segment isn't what it was: nothing can be taken here any more.
  [[nodiscard]] bool isSound() const noexcept { return !damaged_ && segment_->isSound(); }

  /// The oldest chunk that wasn't taken and is still there; empty when there is none.
  [[nodiscard]] std::shared_ptr<SharedMemBuffer> take();
  /// Skips all that was published.
  void skip() noexcept;
  static constexpr std::uint32_t kLongestSleepMs = 100;
  /// Sleeps until something is there, a kick, or `limitMs` have passed; false in the last case.
  /// Doesn't when `word` isn't `seen`.
  [[nodiscard]] bool sleep(const std::atomic<std::uint32_t>& word, std::uint32_t seen,
                           std::uint32_t limitMs = kLongestSleepMs) noexcept;
  /// Ends a sleep.
  void kick() const noexcept { segment_->wakePlace(place_); }
  /// Awaits nothing any more, for good.
  void leave() noexcept;

 private:
  class Chunk;
  template <class T>
  struct SlotAllocator;
  /// Where a delivered chunk's object lives, one for each chunk of the segment.
  struct Slot {
    static constexpr std::size_t kSize = 128;
    alignas(std::max_align_t) std::array<std::byte, kSize> storage{};
    std::atomic<bool> isTaken{false};
    std::atomic<bool> isHeld{false};  ///< the application has the chunk
  };

  Attachment(std::unique_ptr<Segment> segment, std::uint32_t place,
             const Memory::ShmIdentity& known);
  [[nodiscard]] bool hold(std::uint32_t chunk, std::uint64_t sequence) noexcept;
  void drop(std::uint32_t chunk) noexcept;
  void advance(std::uint64_t next) noexcept;
  [[nodiscard]] std::uint64_t lastThere() noexcept;

  const std::unique_ptr<Segment> segment_;
  const std::uint32_t place_;
  const std::uint32_t bit_;
  const std::unique_ptr<Slot[]> slots_;
  std::atomic<bool> hasLeft_{false};
  std::uint64_t next_ = 0;  ///< the cursor
  bool damaged_ = false;
};

}  // namespace Pexal::PBase
