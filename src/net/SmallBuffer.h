#pragma once

#include <cstdint>
#include <vector>

#include "net/ByteTransfer.h"

namespace orvane::RobotSdk {

/// A byte buffer of fixed capacity with one read and one write cursor, to assemble datagrams and to
/// take them apart. It views a block of somebody else's, or owns one.
///
/// **The checks report and never refuse.** A reader past the data, a writer or a skipWrite past the
/// capacity logs a line (level 5) and is carried out all the same: it reads or writes beyond the
/// block, and the cursor advances. So before every access test
///
///     canRead(width)      before a reader of that width
///     canWrite(width)     before a writer of that width, and with n before skipWrite(n)
///     canWrite(expected)  before fillFrom(source, expected)
///
/// append, drainTo and fillFrom(source) keep within the block by themselves. Data from outside that
/// is read without the test is a read of foreign memory. Over a null pointer (logged when the
/// buffer is made) there is nothing to access, whatever the tests say: they look at the cursors
/// alone.
///
/// As long as the tests are made, 0 <= offset() <= length() <= size() holds.
///
/// Multi-byte values are in the order of this machine, or reversed where both the buffer (`swap`)
/// and the call (`swapThis`) say so. Counts and positions are bytes.
///
/// Not thread-safe: one thread at a time. Nothing blocks, nothing throws (but the owning form,
/// std::bad_alloc), and only the owning form allocates.
class SmallBuffer {
 public:
  /// Views `size` bytes at `data`, of which the first `length` hold data. The block must outlive
  /// the buffer; `length` is taken as it is.
  SmallBuffer(std::uint8_t* data, std::int32_t size, bool swap, std::int32_t length);
  /// Owns a block of `size` bytes, all zero.
  SmallBuffer(std::int32_t size, bool swap);
  SmallBuffer(const SmallBuffer&) = delete;
  SmallBuffer& operator=(const SmallBuffer&) = delete;

  /// Makes the buffer anew, as the constructors do. An owned block is kept for the next own(),
  /// which takes it (zeroed) when it is large enough.
  void view(std::uint8_t* data, std::int32_t size, bool swap, std::int32_t length);
  void own(std::int32_t size, bool swap);

  /// True when there is memory to access.
  [[nodiscard]] bool hasBlock() const noexcept { return data_ != nullptr && size_ > 0; }
  [[nodiscard]] const std::uint8_t* data() const noexcept { return data_; }
  [[nodiscard]] std::int32_t size() const noexcept { return size_; }      ///< capacity
  [[nodiscard]] std::int32_t offset() const noexcept { return offset_; }  ///< read cursor
  [[nodiscard]] std::int32_t length() const noexcept { return length_; }  ///< write cursor

  /// True when `n` more bytes can be read.
  [[nodiscard]] bool canRead(std::int32_t n) const noexcept;
  /// True when `n` more bytes fit.
  [[nodiscard]] bool canWrite(std::int32_t n) const noexcept;
  /// False when the size is 0 or less. Else canWrite(n) for n > 0, and whether a byte is free for
  /// n <= 0.
  [[nodiscard]] bool hasRoom(std::int32_t n) const noexcept;

  /// Each carries the read cursor on by its width: test canRead(width) first.
  std::uint8_t readU8();
  std::uint16_t readU16(bool swapThis);
  std::uint32_t readU32(bool swapThis);
  std::uint64_t readU64(bool swapThis);
  float readFloat(bool swapThis);

  /// Each carries the write cursor on by its width: test canWrite(width) first.
  void writeU8(std::uint8_t value);
  void writeU16(std::uint16_t value, bool swapThis);
  void writeU32(std::uint32_t value, bool swapThis);
  void writeU64(std::uint64_t value, bool swapThis);
  void writeFloat(float value, bool swapThis);

  /// Carries the write cursor on by `n` and leaves the bytes as they are: test canWrite(n) first.
  void skipWrite(std::int32_t n);
  /// Puts the write cursor to `n`; the read cursor stays. False, with nothing changed, unless
  /// 1 <= n <= size.
  [[nodiscard]] bool setLength(std::int32_t n) noexcept;
  /// Sets the read and/or the write cursor back to 0.
  void reset(bool resetOffset, bool resetLength) noexcept;

  /// Copies of the `n` bytes at `bytes` as many as fit, and returns how many; 0 when none fit,
  /// `bytes` or the block is null, or n < 1. The bytes must not overlap the block.
  std::int32_t append(const void* bytes, std::int32_t n);

  /// Hands the unread part to the sink, in one call, and carries the read cursor on by what the
  /// sink says it took. Returns what the sink returned (a negative result moves nothing); 0, and no
  /// call, when nothing is unread, there is no block or the sink isn't set.
  std::int32_t drainTo(ByteSink sink);

  /// Hands the free part to the source, in one call, and carries the write cursor on by what the
  /// source says it stored. Returns what the source returned (a negative result moves nothing); 0,
  /// and no call, when nothing is free, there is no block or the source isn't set.
  std::int32_t fillFrom(ByteSource source);
  /// The same with a length of `expected`, **whatever is free**: test canWrite(expected) first.
  /// -1 when there is no block, the source isn't set, expected < 1, or the source returned
  /// a negative count; 0 when it returned 0. A result above `expected` is logged and taken.
  std::int32_t fillFrom(ByteSource source, std::int32_t expected);

 private:
  template <class Value>
  Value read(bool swapThis);
  template <class Value>
  void write(Value value, bool swapThis);
  void attach(std::uint8_t* data, std::int32_t size, bool swap, std::int32_t length);

  bool swap_ = false;
  std::uint8_t* data_ = nullptr;
  std::int32_t size_ = 0;
  std::int32_t offset_ = 0;
  std::int32_t length_ = 0;
  std::vector<std::uint8_t> storage_;
};

}  // namespace orvane::RobotSdk
