#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pbase/SharedMem.h"
#include "shm/Segment.h"
#include "shm/ShmFile.h"

namespace Pexal::PBase {

/// The publisher's half of the protocol in Segment.h.
class RingPublisher final : public SharedMemPublisher {
 public:
  /// One that is never ready.
  RingPublisher();
  /// Not ready, with a line in the log, when the name has a publisher already or the system
  /// refuses. `geometry` must be valid.
  RingPublisher(std::string fileName, const Geometry& geometry);
  ~RingPublisher() override;

  [[nodiscard]] bool isReady() const noexcept override { return segment_ != nullptr; }
  void setStatusCallback(StatusCallback callback) override { callback_ = std::move(callback); }
  [[nodiscard]] SharedMemLoan loan(std::uint32_t size, std::uint32_t flags) noexcept override;
  bool publish(SharedMemLoan loan) noexcept override;

 private:
  struct Chunk;
  /// What a reader's cursor was when it was first seen to hold things up.
  struct Watch {
    std::uint64_t cursor = 0;
    std::uint64_t sinceUs = 0;
    std::uint64_t voidCursor = 0;  ///< a cursor that doesn't count any more; 0: none
  };

  void giveBack(SharedMemBuffer* chunk) noexcept override;
  [[nodiscard]] bool makeSegment() noexcept;
  [[nodiscard]] Chunk* findFree() noexcept;
  [[nodiscard]] Chunk* awaitFree() noexcept;
  [[nodiscard]] Chunk* findInRing() noexcept;
  [[nodiscard]] bool takeIfFree(Chunk& chunk) noexcept;
  void readCursors() noexcept;
  [[nodiscard]] bool isAwaiting(std::uint32_t place, std::uint64_t cursor) const noexcept;
  [[nodiscard]] std::uint32_t holders() const noexcept;
  bool dropReaders() noexcept;
  bool dropIfGone(std::uint32_t place) noexcept;
  bool dropIfStalled(std::uint32_t place, std::uint64_t cursor, std::uint64_t nowUs) noexcept;
  void tell(Status status) noexcept;

  const std::string fileName_;
  const Geometry geometry_{};
  Memory::WriterLock writerLock_;
  std::unique_ptr<Segment> segment_;
  StatusCallback callback_;

  std::vector<Chunk> chunks_;
  std::size_t nextChunk_ = 0;  ///< where the next search begins
  std::size_t onLoan_ = 0;
  std::uint64_t published_ = 0;
  std::uint64_t allTaken_ = 0;  ///< every reader is past the numbers up to here
  std::uint32_t joins_ = 0;     ///< readers that came, when the cursors were read
  std::array<Watch, kPlaces> watches_{};
};

}  // namespace Pexal::PBase
