#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "pbase/Export.h"

namespace Pexal::Memory {

/// The newest record of one writer, for any number of readers in any process of this machine.
///
/// All records of a buffer have one size. They are numbered from 1, and the numbers go on rising
/// when the writer, or its process, is replaced. Readers map the buffer read-only, so they can't
/// disturb the writer, and the writer never waits for them. Nobody who dies, at whatever point,
/// leaves anything behind that another would wait for.
///
/// A name is 1 to 64 letters, digits, '_', '-' or '.'. The buffer is a file of that name in
/// /dev/shm (mode 0644, of the writer's user), with a lock file beside it. Both stay when the
/// writer ends: readers keep what there was, and the next writer goes on counting. Should the
/// buffer's file be removed or spoilt while no writer lives, the numbers begin at 1 again.
///
/// A buffer that somebody cuts short while it is in use harms nobody: the writer makes it again
/// with the next put, and readers find the new one. For that the first create or open installs a
/// handler of SIGBUS, which hands every other fault on to the handler that was there before. An
/// application that installs its own later must hand on in the same way.
///
/// Threading contract: create, open and close while no other operation runs on the object; put by
/// one thread at a time; latestSeq, get and recordSize by any number at once, also beside put. No
/// operation waits for another thread or takes a mutex.
class PEXAL_API CShmTripleBuffer {
 public:
  /// Results of get.
  static constexpr int kCopied = 1;
  static constexpr int kNothingYet = 0;  ///< there is no record
  static constexpr int kBusy = -1;       ///< the writer overtook every attempt: try again
  static constexpr int kRefused = -2;    ///< not open, a bad size, or cut short by somebody

  CShmTripleBuffer();
  ~CShmTripleBuffer();
  CShmTripleBuffer(const CShmTripleBuffer&) = delete;
  CShmTripleBuffer& operator=(const CShmTripleBuffer&) = delete;

  /// Becomes the buffer's writer, with records of `recordSize` bytes (1 to 1 MiB). It makes a new
  /// object under the name; a former writer's newest record is carried over when its size is the
  /// same, the count always. Readers of the former object notice within 100 ms of looking, provided
  /// that the size is the same. False, with a line in the log: a bad name or size, another writer
  /// lives, or the system refuses. Blocks for system calls only.
  [[nodiscard]] bool create(const std::string& name, std::uint32_t recordSize);

  /// `readOnly`: becomes a reader. Else becomes the writer after the one that made the buffer, with
  /// the record size that it has. False without a line in the log when there is no such buffer
  /// (readers try again); with a line when it isn't what it should be (of another user than this or
  /// root, of another mode or format, of a size that doesn't fit its head), and as with create.
  [[nodiscard]] bool open(const std::string& name, bool readOnly);

  /// Lets go. A writer's buffer stays as it is.
  void close() noexcept;

  /// Writer: stores the record under the next number and returns that. 0 when this isn't a writer,
  /// `size` isn't the buffer's, or the buffer was cut short and can't be made again just now (tried
  /// at most each 100 ms). No system call and no allocation, except to make a buffer again.
  std::uint64_t put(const void* record, std::uint32_t size) noexcept;

  /// The number of the newest record; 0 when there was none yet, or this isn't open.
  [[nodiscard]] std::uint64_t latestSeq() noexcept;

  /// Copies the first `size` bytes of the newest record, 1 to all of them. With kCopied `epoch`
  /// tells which writer wrote it, counted from 1, and `seq` its number; both may be null. With any
  /// other result these two are left alone, while `destination` may hold anything. No system call,
  /// except that a reader to whom nothing is new looks for a new object of the name, at most each
  /// 100 ms.
  [[nodiscard]] int get(void* destination, std::uint32_t size, std::uint64_t* epoch,
                        std::uint64_t* seq) noexcept;

  /// Bytes of a record; 0 when not open.
  [[nodiscard]] std::uint32_t recordSize() const noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Pexal::Memory
