#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "shm/ShmFile.h"

namespace Pexal::Memory {

/// What a mapping's state consists of: two bits, the others count the objects.
struct MappingState {
  static constexpr std::uint64_t kLost = 1;
  static constexpr std::uint64_t kChanging = 2;  ///< replace is under way
  static constexpr std::uint64_t kOneObject = 4;
};

/// A shared object's memory in this process. An object that somebody cuts short would end the
/// process with a bus error at the next access; here its memory turns into private, zeroed memory
/// instead, and isLost() tells.
///
/// For that the first mapping installs a handler of SIGBUS, which hands every other fault to the
/// handler that was there before. An application that installs one later must do the same, and a
/// thread that blocks SIGBUS isn't protected.
///
/// Threading contract: state and isLost by any thread; the others by one at a time. Only replace
/// may run while other threads use the memory.
class ShmMapping {
 public:
  ShmMapping() = default;
  ~ShmMapping() { unmap(); }
  ShmMapping(const ShmMapping&) = delete;
  ShmMapping& operator=(const ShmMapping&) = delete;

  /// Maps `size` bytes. False, with errno: the system refuses, the object is shorter (EINVAL), 256
  /// mappings live already (ENFILE).
  [[nodiscard]] bool map(const ShmFile& file, std::size_t size, bool writable);
  /// Puts another object in the place of a mapped one, at the same address and for the same number
  /// of bytes; other threads may go on reading there meanwhile. False: nothing changed.
  [[nodiscard]] bool replace(const ShmFile& file, bool writable);
  void unmap() noexcept;

  [[nodiscard]] void* address() const { return address_; }
  [[nodiscard]] std::size_t size() const { return size_; }

  /// True from the first access on that found no memory; false again after replace, though a loss
  /// that coincides with it may be told when there is none any more.
  [[nodiscard]] bool isLost() const noexcept;
  /// A number that is another one after what stands behind the address has changed, by a loss or by
  /// replace: what is read between two equal, settled answers comes from one object. Only while
  /// mapped.
  [[nodiscard]] std::uint64_t state() const noexcept {
    return state_->load(std::memory_order_acquire);
  }
  /// False while replace is under way.
  [[nodiscard]] static bool isSettled(std::uint64_t state) noexcept {
    return (state & MappingState::kChanging) == 0;
  }

 private:
  void* address_ = nullptr;
  std::size_t size_ = 0;
  int guard_ = -1;
  const std::atomic<std::uint64_t>* state_ = nullptr;
};

}  // namespace Pexal::Memory
