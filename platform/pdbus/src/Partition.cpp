#include "Partition.h"

namespace Pexal::PDBus {
namespace {

constexpr std::string_view kDevicePrefix = "device/";
constexpr std::string_view kClientPrefix = "client/";
constexpr std::string_view kDigits = "0123456789abcdef";

// Spelled out: isalnum() depends on the locale of the process.
constexpr bool isPlain(unsigned char byte) {
  return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
         (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-';
}

void appendHex(std::string& text, unsigned char byte) {
  text += kDigits[byte >> 4U];
  text += kDigits[byte & 15U];
}

}  // namespace

std::optional<std::string> devicePartition(std::string_view deviceId) {
  if (deviceId.size() > kMaxDeviceId) return std::nullopt;
  if (deviceId.empty()) return std::string();
  std::string partition(kDevicePrefix);
  for (const char character : deviceId) {
    const auto byte = static_cast<unsigned char>(character);
    if (isPlain(byte)) {
      partition += character;
    } else {
      partition += '%';
      appendHex(partition, byte);
    }
  }
  return partition;
}

std::string clientPartition(const PeerId& client) {
  std::string partition(kClientPrefix);
  for (const std::uint8_t byte : client) appendHex(partition, byte);
  return partition;
}

std::optional<PeerId> clientOfPartition(std::string_view text) {
  PeerId client{};
  if (text.size() != kClientPrefix.size() + 2 * client.size() || !text.starts_with(kClientPrefix)) {
    return std::nullopt;
  }
  text.remove_prefix(kClientPrefix.size());
  for (std::size_t i = 0; i < client.size(); ++i) {
    const auto high = kDigits.find(text[2 * i]);
    const auto low = kDigits.find(text[2 * i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    client[i] = static_cast<std::uint8_t>(high << 4U | low);
  }
  return client;
}

}  // namespace Pexal::PDBus
