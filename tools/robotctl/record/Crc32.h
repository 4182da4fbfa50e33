#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace robotctl::mcap {

/// CRC-32 as zlib, PNG and MCAP have it (reflected polynomial 0xEDB88320) of `bytes`, going on from
/// `before`, the CRC of what stands in front of them (0: nothing).
[[nodiscard]] std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before = 0);

}  // namespace robotctl::mcap
