#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "pbase/CShmTripleBuffer.h"

namespace platform_test {

/// Every word is a function of the record's number; bytes of the last word that don't belong to the
/// record are zero.
template <std::uint32_t kSize>
struct Record {
  std::array<std::uint64_t, (kSize + 7) / 8> words{};

  static constexpr std::uint64_t word(std::uint64_t number, std::uint64_t i) {
    const std::uint64_t value = (number + i * 0x1'0000'0001) * 0x9E37'79B9'7F4A'7C15;
    return (i + 1) * 8 <= kSize ? value : value & ((std::uint64_t{1} << kSize % 8 * 8) - 1);
  }
  void fill(std::uint64_t number) {
    for (std::uint64_t i = 0; i < words.size(); ++i) words[i] = word(number, i);
  }
  [[nodiscard]] bool isOf(std::uint64_t number) const {
    std::uint64_t differences = 0;
    for (std::uint64_t i = 0; i < words.size(); ++i) differences |= words[i] ^ word(number, i);
    return differences == 0;
  }
  bool putInto(Pexal::Memory::CShmTripleBuffer& buffer) {
    const std::uint64_t number = buffer.latestSeq() + 1;
    fill(number);
    return buffer.put(this, kSize) == number;
  }
};

/// What a reader has seen.
struct Tally {
  std::uint64_t copied = 0;
  std::uint64_t fresh = 0;  ///< of those, with a new number
  std::uint64_t number = 0;
  std::uint64_t faults = 0;  ///< torn, or a number that fell

  template <std::uint32_t kSize>
  int read(Pexal::Memory::CShmTripleBuffer& buffer) {
    Record<kSize> record;
    std::uint64_t got = 0;
    const int result = buffer.get(&record, kSize, nullptr, &got);
    if (result != Pexal::Memory::CShmTripleBuffer::kCopied) return result;
    ++copied;
    fresh += got != number ? 1 : 0;
    faults += record.isOf(got) && got >= number ? 0 : 1;
    number = got;
    return result;
  }
};

/// The newest record's number, when that is whole.
template <std::uint32_t kSize>
std::optional<std::uint64_t> newestOf(Pexal::Memory::CShmTripleBuffer& buffer) {
  Tally tally;
  const bool isGood =
      tally.read<kSize>(buffer) == Pexal::Memory::CShmTripleBuffer::kCopied && tally.faults == 0;
  return isGood ? std::optional(tally.number) : std::nullopt;
}

template <std::uint32_t kSize>
std::optional<std::uint64_t> newestOf(const std::string& name) {
  Pexal::Memory::CShmTripleBuffer buffer;
  return buffer.open(name, true) ? newestOf<kSize>(buffer) : std::nullopt;
}

}  // namespace platform_test
