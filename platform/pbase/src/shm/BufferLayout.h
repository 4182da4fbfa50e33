#pragma once

#include <cstddef>
#include <cstdint>

#include "shm/WordCopy.h"

namespace Pexal::Memory {

// A buffer's object:
//
//   line 0       head: never changes once the object has its name
//   line 1       latest: the number of the newest record
//   4 slots      each from a line's begin on: a sequence word, then the record
//   last line    its last word is kMagic until somebody cuts the object short, even if it is
//                lengthened again then
//
// Record n is in slot n mod 4, whose sequence word is 2n+1 while it is written and 2n+2 from then
// on. A reader takes a record when that word is 2n+2 before and after the copy.

constexpr std::uint64_t kMagic = 0x3652'4646'5542'524f;
constexpr std::uint64_t kVersion = 1;
constexpr std::size_t kLine = 64;
constexpr std::uint64_t kSlots = 4;
constexpr std::uint32_t kLargestRecord = 1U << 20;

template <class Word>
struct BufferHead {
  Word magic;
  Word version;
  Word recordSize;
  Word slotStride;
  Word epoch;         ///< the writer's
  Word formerLatest;  ///< numbers up to this one are of former writers
  Word formerEpoch;   ///< of the writer of that record
  Word unused;
  Word latest;
  Word padding[kLine / kWordSize - 1];
};
using SharedHead = BufferHead<SharedWord>;
using PrivateHead = BufferHead<std::uint64_t>;
static_assert(sizeof(PrivateHead) == 2 * kLine && sizeof(SharedHead) == 2 * kLine);
static_assert(offsetof(PrivateHead, latest) == kLine);

constexpr std::size_t slotStride(std::size_t recordSize) {
  return (kWordSize + recordSize + kLine - 1) / kLine * kLine;
}
constexpr std::size_t slotOffset(std::uint64_t number, std::size_t recordSize) {
  return sizeof(PrivateHead) + number % kSlots * slotStride(recordSize);
}
constexpr std::size_t objectSize(std::size_t recordSize) {
  return sizeof(PrivateHead) + kSlots * slotStride(recordSize) + kLine;
}
constexpr std::size_t tailOffset(std::size_t recordSize) {
  return objectSize(recordSize) - kWordSize;
}
constexpr std::uint64_t sequenceOf(std::uint64_t number) {
  return 2 * number + 2;
}

/// A buffer's object in this process's memory.
class BufferView {
 public:
  BufferView() = default;
  BufferView(void* address, std::size_t recordSize)
      : head_(static_cast<SharedHead*>(address)),
        tail_(at(tailOffset(recordSize))),
        stride_(slotStride(recordSize)) {}

  [[nodiscard]] std::uint64_t latest() const noexcept {
    return head_->latest.load(std::memory_order_acquire);
  }
  /// The slot's sequence word, with the record behind it.
  [[nodiscard]] SharedWord* slot(std::uint64_t number) const noexcept {
    return at(sizeof(SharedHead) + number % kSlots * stride_);
  }
  /// The epoch of the writer of a record.
  [[nodiscard]] std::uint64_t epochOf(std::uint64_t number) const noexcept {
    const bool isFormer = number <= head_->formerLatest.load(kWordLoad);
    return (isFormer ? head_->formerEpoch : head_->epoch).load(kWordLoad);
  }
  /// False once somebody has cut the object short, or wiped it.
  [[nodiscard]] bool isWhole() const noexcept {
    return head_->magic.load(kWordLoad) == kMagic && tail_->load(kWordLoad) == kMagic;
  }

  void store(std::uint64_t number, const void* record, std::size_t size) const noexcept {
    SharedWord* const sequence = slot(number);
    sequence->store(sequenceOf(number) - 1, std::memory_order_relaxed);
    fenceBeforeStores();
    storeBytes(sequence + 1, record, size);
    sequence->store(sequenceOf(number), std::memory_order_release);
    head_->latest.store(number, std::memory_order_release);
  }

 private:
  [[nodiscard]] SharedWord* at(std::size_t offset) const noexcept {
    return reinterpret_cast<SharedWord*>(reinterpret_cast<std::byte*>(head_) + offset);
  }

  SharedHead* head_ = nullptr;
  SharedWord* tail_ = nullptr;
  std::size_t stride_ = 0;
};

}  // namespace Pexal::Memory
