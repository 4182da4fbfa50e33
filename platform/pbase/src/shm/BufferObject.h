#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "shm/BufferLayout.h"
#include "shm/ShmFile.h"

namespace Pexal::Memory {

/// What has a buffer's name. Looked at by read calls only, so nothing done to the file can hurt.
struct FoundBuffer {
  ShmFile file;        ///< open (for reading) when it is a buffer
  PrivateHead head{};  ///< valid then
  std::string fault;   ///< else why it isn't one; empty when nothing has the name

  [[nodiscard]] bool isBuffer() const { return file.isOpen(); }
  [[nodiscard]] bool isAbsent() const { return !file.isOpen() && fault.empty(); }

  [[nodiscard]] static FoundBuffer find(const std::string& name);
  /// The newest record, in words; empty when there is none. For the time when no writer lives.
  [[nodiscard]] std::vector<std::uint64_t> newest() const;
};

/// What a writer's object begins with.
struct BufferOrigin {
  std::uint32_t recordSize = 0;
  std::uint64_t epoch = 1;
  std::uint64_t formerLatest = 0;
  std::uint64_t formerEpoch = 0;
  std::vector<std::uint64_t> newest;  ///< the record of number formerLatest; empty: none

  /// What a new writer takes over: the count always, the record when it is of the same size.
  [[nodiscard]] static BufferOrigin after(const FoundBuffer& former, std::uint32_t recordSize);
};

/// A finished draft, not open when the system refuses (errno).
[[nodiscard]] ShmFile draftBuffer(const std::string& name, const BufferOrigin& origin);

}  // namespace Pexal::Memory
