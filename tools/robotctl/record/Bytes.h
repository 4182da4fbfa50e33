#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

/// Little-endian numbers into and out of bytes, as MCAP and CDR have them.
namespace robotctl::mcap {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

using ByteView = std::span<const std::uint8_t>;

/// A buffer that is appended to. It keeps its capacity when cleared, so that one that has grown to
/// its usual size allocates no more.
class ByteBuffer {
 public:
  template <class Number>
  void put(Number value) {
    static_assert(std::is_arithmetic_v<Number> || std::is_enum_v<Number>);
    append({reinterpret_cast<const std::uint8_t*>(&value), sizeof(value)});
  }
  /// Overwrites what stands at `at`.
  template <class Number>
  void putAt(std::size_t at, Number value) {
    std::memcpy(bytes_.data() + at, &value, sizeof(value));
  }
  /// A text behind its length in four bytes.
  void putText(std::string_view text) {
    put(static_cast<std::uint32_t>(text.size()));
    append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
  void append(ByteView bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void appendZeros(std::size_t count) { bytes_.resize(bytes_.size() + count); }
  void clear() { bytes_.clear(); }
  /// Makes room for `size` bytes, and touches it, so that the system hands out the memory now.
  void prepare(std::size_t size) {
    bytes_.resize(std::max(size, bytes_.size()));
    bytes_.clear();
  }

  [[nodiscard]] std::size_t size() const { return bytes_.size(); }
  [[nodiscard]] ByteView view() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

/// Takes numbers off the front of bytes from outside. What doesn't fit is read as zero or empty,
/// and `ok` is false from then on.
class ByteCursor {
 public:
  explicit ByteCursor(ByteView bytes) : rest_(bytes) {}

  template <class Number>
  Number take() {
    static_assert(std::is_arithmetic_v<Number>);
    Number value{};
    const ByteView bytes = takeBytes(sizeof(value));
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
  }
  ByteView takeBytes(std::uint64_t count) {
    if (count > rest_.size()) {
      ok_ = false;
      rest_ = {};
      return {};
    }
    const ByteView bytes = rest_.first(count);
    rest_ = rest_.subspan(count);
    return bytes;
  }
  /// Valid as long as the bytes are.
  std::string_view takeText() {
    const ByteView bytes = takeBytes(take<std::uint32_t>());
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  [[nodiscard]] ByteView rest() const { return rest_; }
  [[nodiscard]] bool ok() const { return ok_; }

 private:
  ByteView rest_;
  bool ok_ = true;
};

}  // namespace robotctl::mcap
