#include "RtpsCapture.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <system_error>

namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t kRtpsHeader = 20;
constexpr std::uint8_t kDataMessage = 0x15;
constexpr std::uint8_t kLittleEndian = 0x01;
constexpr std::uint8_t kInlineQos = 0x02;
constexpr std::uint8_t kHasPayload = 0x04;
constexpr std::uint8_t kUserWriterWithoutKey = 0x03;

std::uint8_t byteAt(Bytes bytes, std::size_t offset) {
  return offset < bytes.size() ? std::to_integer<std::uint8_t>(bytes[offset]) : 0;
}

std::size_t shortAt(Bytes bytes, std::size_t offset, bool little) {
  const std::size_t first = byteAt(bytes, offset);
  const std::size_t second = byteAt(bytes, offset + 1);
  return little ? first | second << 8 : first << 8 | second;
}

/// The payload of one DATA message without its four-byte header; empty when there is none.
Bytes payloadOf(Bytes message, std::uint8_t flags) {
  constexpr std::size_t kBeforeOffset = 4;  // extra flags, octets to the inline QoS
  constexpr std::size_t kWriterKind = 11;
  if ((flags & kHasPayload) == 0 || byteAt(message, kWriterKind) != kUserWriterWithoutKey)
    return {};
  const bool little = (flags & kLittleEndian) != 0;
  std::size_t at = kBeforeOffset + shortAt(message, 2, little);
  if ((flags & kInlineQos) != 0) {
    while (at + 4 <= message.size() && shortAt(message, at, little) != 1) {  // 1: the sentinel
      at += 4 + shortAt(message, at + 2, little);
    }
    at += 4;
  }
  return at < message.size() ? message.subspan(at) : Bytes();
}

void collect(Bytes datagram, std::vector<std::vector<std::byte>>& payloads) {
  for (std::size_t at = kRtpsHeader; at + 4 <= datagram.size();) {
    const std::uint8_t flags = byteAt(datagram, at + 1);
    const std::size_t announced = shortAt(datagram, at + 2, (flags & kLittleEndian) != 0);
    const std::size_t left = datagram.size() - at - 4;
    // Length zero: as far as the datagram goes.
    const std::size_t length = announced == 0 ? left : std::min(announced, left);
    if (byteAt(datagram, at) == kDataMessage) {
      const Bytes payload = payloadOf(datagram.subspan(at + 4, length), flags);
      if (!payload.empty()) payloads.emplace_back(payload.begin(), payload.end());
    }
    at += 4 + length;
  }
}

}  // namespace

RtpsCapture::RtpsCapture() : socket_(socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_ALL))) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
  const int room = 16 << 20;
  if (socket_ < 0 ||
      bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0) {
    throw std::system_error(errno, std::generic_category(), "packet socket on lo");
  }
}

RtpsCapture::~RtpsCapture() {
  close(socket_);
}

std::vector<std::vector<std::byte>> RtpsCapture::take() {
  std::vector<std::vector<std::byte>> payloads;
  std::array<std::byte, 65536> packet;
  ssize_t size = 0;
  while ((size = recv(socket_, packet.data(), packet.size(), MSG_DONTWAIT)) > 0) {
    constexpr std::array<std::byte, 4> kMark{std::byte{'R'}, std::byte{'T'}, std::byte{'P'},
                                             std::byte{'S'}};
    const Bytes bytes(packet.data(), static_cast<std::size_t>(size));
    const auto start = std::search(bytes.begin(), bytes.end(), kMark.begin(), kMark.end());
    if (start != bytes.end()) {
      collect(bytes.subspan(static_cast<std::size_t>(start - bytes.begin())), payloads);
    }
  }
  return payloads;
}
