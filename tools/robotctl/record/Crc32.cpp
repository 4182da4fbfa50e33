#include "record/Crc32.h"

#include <array>
#include <bit>
#include <cstring>

namespace robotctl::mcap {
namespace {

constexpr std::size_t kStride = 8;  // bytes per step: a table for each
using Tables = std::array<std::array<std::uint32_t, 256>, kStride>;

constexpr Tables makeTables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0);
    tables[0][byte] = value;
  }
  for (std::size_t table = 1; table < kStride; ++table) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t shorter = tables[table - 1][byte];
      tables[table][byte] = (shorter >> 8) ^ tables[0][shorter & 0xFF];
    }
  }
  return tables;
}

constexpr Tables kTables = makeTables();
static_assert(std::endian::native == std::endian::little);

}  // namespace

std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before) {
  std::uint32_t value = ~before;
  while (bytes.size() >= kStride) {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    std::memcpy(&low, bytes.data(), 4);
    std::memcpy(&high, bytes.data() + 4, 4);
    low ^= value;
    value = kTables[7][low & 0xFF] ^ kTables[6][(low >> 8) & 0xFF] ^
            kTables[5][(low >> 16) & 0xFF] ^ kTables[4][low >> 24] ^ kTables[3][high & 0xFF] ^
            kTables[2][(high >> 8) & 0xFF] ^ kTables[1][(high >> 16) & 0xFF] ^
            kTables[0][high >> 24];
    bytes = bytes.subspan(kStride);
  }
  for (const std::uint8_t byte : bytes) value = (value >> 8) ^ kTables[0][(value ^ byte) & 0xFF];
  return ~value;
}

}  // namespace robotctl::mcap
