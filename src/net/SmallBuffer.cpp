#include "net/SmallBuffer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>

#include "log/Log.h"

namespace orvane::RobotSdk {
namespace {

constexpr const char* kUnit = "SmallBuffer";

/// Cursors advance without a refusal, so their sums are made in 64 bits: none overflows there, and
/// what no longer fits a cursor wraps.
std::int64_t sum(std::int32_t a, std::int32_t b) {
  return std::int64_t{a} + b;
}

void advance(std::int32_t& cursor, std::int32_t n) {
  cursor = static_cast<std::int32_t>(sum(cursor, n));
}

std::int32_t distance(std::int32_t from, std::int32_t to) {
  const std::int64_t bytes = std::int64_t{to} - from;
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(bytes, std::numeric_limits<std::int32_t>::max()));
}

template <class Value>
using Bytes = std::array<std::uint8_t, sizeof(Value)>;

}  // namespace

SmallBuffer::SmallBuffer(std::uint8_t* data, std::int32_t size, bool swap, std::int32_t length) {
  view(data, size, swap, length);
}

SmallBuffer::SmallBuffer(std::int32_t size, bool swap) {
  own(size, swap);
}

void SmallBuffer::view(std::uint8_t* data, std::int32_t size, bool swap, std::int32_t length) {
  attach(data, size, swap, length);
}

void SmallBuffer::own(std::int32_t size, bool swap) {
  const std::size_t bytes = size > 0 ? static_cast<std::size_t>(size) : 0;
  if (storage_.size() < bytes) storage_.resize(bytes);
  std::fill_n(storage_.begin(), bytes, std::uint8_t{0});
  attach(bytes > 0 ? storage_.data() : nullptr, size, swap, 0);
}

void SmallBuffer::attach(std::uint8_t* data, std::int32_t size, bool swap, std::int32_t length) {
  swap_ = swap;
  data_ = data;
  size_ = size;
  offset_ = 0;
  length_ = length;
  if (!hasBlock()) {
    MOTION_LOG(kUnit, level::kConfiguration, "io buffer size(%d) is <= 0", size);
  }
}

bool SmallBuffer::canRead(std::int32_t n) const noexcept {
  return sum(offset_, n) <= length_;
}

bool SmallBuffer::canWrite(std::int32_t n) const noexcept {
  return sum(length_, n) <= size_;
}

bool SmallBuffer::hasRoom(std::int32_t n) const noexcept {
  if (size_ <= 0) return false;
  return n > 0 ? canWrite(n) : length_ < size_;
}

template <class Value>
Value SmallBuffer::read(bool swapThis) {
  constexpr std::int32_t kWidth = sizeof(Value);
  if (!canRead(kWidth)) {
    MOTION_LOG(kUnit, level::kConfiguration, "out of size(%d),offset:%d,length:%d", size_, offset_,
               length_);
  }
  Bytes<Value> bytes;
  std::memcpy(bytes.data(), data_ + offset_, bytes.size());
  if (swapThis && swap_) std::reverse(bytes.begin(), bytes.end());
  advance(offset_, kWidth);
  return std::bit_cast<Value>(bytes);
}

template <class Value>
void SmallBuffer::write(Value value, bool swapThis) {
  constexpr std::int32_t kWidth = sizeof(Value);
  if (!canWrite(kWidth)) {
    MOTION_LOG(kUnit, level::kConfiguration, "out of size(%d),length:%d", size_, length_);
  }
  auto bytes = std::bit_cast<Bytes<Value>>(value);
  if (swapThis && swap_) std::reverse(bytes.begin(), bytes.end());
  std::memcpy(data_ + length_, bytes.data(), bytes.size());
  advance(length_, kWidth);
}

std::uint8_t SmallBuffer::readU8() {
  return read<std::uint8_t>(false);
}
std::uint16_t SmallBuffer::readU16(bool swapThis) {
  return read<std::uint16_t>(swapThis);
}
std::uint32_t SmallBuffer::readU32(bool swapThis) {
  return read<std::uint32_t>(swapThis);
}
std::uint64_t SmallBuffer::readU64(bool swapThis) {
  return read<std::uint64_t>(swapThis);
}
float SmallBuffer::readFloat(bool swapThis) {
  return read<float>(swapThis);
}

void SmallBuffer::writeU8(std::uint8_t value) {
  write(value, false);
}
void SmallBuffer::writeU16(std::uint16_t value, bool swapThis) {
  write(value, swapThis);
}
void SmallBuffer::writeU32(std::uint32_t value, bool swapThis) {
  write(value, swapThis);
}
void SmallBuffer::writeU64(std::uint64_t value, bool swapThis) {
  write(value, swapThis);
}
void SmallBuffer::writeFloat(float value, bool swapThis) {
  write(value, swapThis);
}

void SmallBuffer::skipWrite(std::int32_t n) {
  if (!canWrite(n)) {
    MOTION_LOG(kUnit, level::kConfiguration, "%d out of size(%d),length:%d", n, size_, length_);
  }
  advance(length_, n);
}

bool SmallBuffer::setLength(std::int32_t n) noexcept {
  if (n < 1 || n > size_) return false;
  length_ = n;
  return true;
}

void SmallBuffer::reset(bool resetOffset, bool resetLength) noexcept {
  if (resetOffset) offset_ = 0;
  if (resetLength) length_ = 0;
}

std::int32_t SmallBuffer::append(const void* bytes, std::int32_t n) {
  if (!hasBlock() || !hasRoom(0) || bytes == nullptr || n < 1) return 0;
  const std::int32_t count = std::min(n, distance(length_, size_));
  std::memcpy(data_ + length_, bytes, static_cast<std::size_t>(count));
  advance(length_, count);
  return count;
}

std::int32_t SmallBuffer::drainTo(ByteSink sink) {
  if (!hasBlock() || offset_ >= length_ || !sink) return 0;
  const std::int32_t taken = sink(data_ + offset_, distance(offset_, length_));
  if (taken > 0) advance(offset_, taken);
  return taken;
}

std::int32_t SmallBuffer::fillFrom(ByteSource source) {
  if (!hasBlock() || !hasRoom(0) || !source) return 0;
  const std::int32_t stored = source(data_ + length_, distance(length_, size_));
  if (stored > 0) advance(length_, stored);
  return stored;
}

std::int32_t SmallBuffer::fillFrom(ByteSource source, std::int32_t expected) {
  if (!hasBlock() || !source || expected <= 0) return -1;
  const std::int32_t stored = source(data_ + length_, expected);
  if (stored < 0) return -1;
  if (stored > expected) {
    MOTION_LOG(kUnit, level::kConfiguration, "write size(%d) must <= prepare size(%d)", stored,
               expected);
  }
  advance(length_, stored);
  return stored;
}

}  // namespace orvane::RobotSdk
