#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Pexal::PDBus {

/// Random identity of one RPC client channel or one event bus object.
using PeerId = std::array<std::uint8_t, 16>;

/// Longest device id, in bytes.
inline constexpr std::size_t kMaxDeviceId = 255;

/// The DDS partition of the requests for one device: "device/" and the id with every byte outside
/// [A-Za-z0-9._-] as %XX, so that no id holds a partition wildcard or matches another one. The
/// empty id is the default partition "". Nothing when the id is too long.
[[nodiscard]] std::optional<std::string> devicePartition(std::string_view deviceId);

/// The partition of the replies to one client: "client/" and 32 lower-case hexadecimal digits. The
/// client's request writer announces exactly this text in its user data.
[[nodiscard]] std::string clientPartition(const PeerId& client);

/// Reads such an announcement. Nothing when the text is anything else (a foreign writer, a
/// wildcard).
[[nodiscard]] std::optional<PeerId> clientOfPartition(std::string_view text);

}  // namespace Pexal::PDBus
