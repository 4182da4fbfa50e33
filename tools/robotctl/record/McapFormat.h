#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// What writer and reader of the container format MCAP (version 0) have in common. A file is
/// magic, header, data section, summary section, footer, magic; everything between the magics is a
/// record: opcode (1 byte), length of the content (8 bytes), content. All numbers are
/// little-endian; a text is preceded by its length in 4 bytes.
namespace robotctl::mcap {

inline constexpr std::array<std::uint8_t, 8> kMagic = {0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};

enum class Opcode : std::uint8_t {
  kHeader = 0x01,
  kFooter = 0x02,
  kSchema = 0x03,
  kChannel = 0x04,
  kMessage = 0x05,
  kChunk = 0x06,
  kMessageIndex = 0x07,
  kChunkIndex = 0x08,
  kStatistics = 0x0B,
  kSummaryOffset = 0x0E,
  kDataEnd = 0x0F,
};

inline constexpr std::size_t kRecordHead = 9;    ///< opcode and length
inline constexpr std::size_t kMessageHead = 22;  ///< channel, sequence and both times
inline constexpr std::size_t kFooterSize = 20;   ///< of its content

}  // namespace robotctl::mcap
