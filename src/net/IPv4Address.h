#pragma once

#include <netinet/in.h>

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "net/Result.h"

namespace NFramework {

/// An IPv4 address with a port. A value; ordered by address, then port.
class IPv4Address {
 public:
  /// 0.0.0.0:0
  constexpr IPv4Address() noexcept = default;
  /// `address` and `port` as numbers of this machine: 0x7F000001 is 127.0.0.1.
  constexpr IPv4Address(std::uint32_t address, std::uint16_t port) noexcept
      : address_(address), port_(port) {}
  explicit IPv4Address(const sockaddr_in& raw) noexcept
      : IPv4Address(ntohl(raw.sin_addr.s_addr), ntohs(raw.sin_port)) {}

  /// "192.0.2.1" (port 0) or "192.0.2.1:5000". Numbers only: four in decimal, no leading zeros.
  /// Else an error with EINVAL.
  static Result<IPv4Address> parse(std::string_view text);
  static constexpr IPv4Address any(std::uint16_t port) { return {INADDR_ANY, port}; }
  static constexpr IPv4Address loopback(std::uint16_t port) { return {INADDR_LOOPBACK, port}; }
  /// 255.255.255.255, every station of the link.
  static constexpr IPv4Address broadcast(std::uint16_t port) { return {INADDR_BROADCAST, port}; }

  [[nodiscard]] constexpr std::uint32_t address() const noexcept { return address_; }
  [[nodiscard]] constexpr std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] constexpr IPv4Address withPort(std::uint16_t port) const noexcept {
    return {address_, port};
  }
  [[nodiscard]] constexpr bool isAny() const noexcept { return address_ == INADDR_ANY; }
  [[nodiscard]] constexpr bool isLoopback() const noexcept { return address_ >> 24 == 127; }
  [[nodiscard]] constexpr bool isMulticast() const noexcept { return address_ >> 28 == 0xE; }

  /// "192.0.2.1"
  [[nodiscard]] std::string hostText() const;
  /// "192.0.2.1:5000", with the port even when it is 0. What parse() takes.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] sockaddr_in raw() const noexcept;
  [[nodiscard]] std::size_t hash() const noexcept;

  friend constexpr auto operator<=>(const IPv4Address&, const IPv4Address&) = default;

 private:
  std::uint32_t address_ = INADDR_ANY;
  std::uint16_t port_ = 0;
};

}  // namespace NFramework

template <>
struct std::hash<NFramework::IPv4Address> {
  std::size_t operator()(const NFramework::IPv4Address& it) const noexcept { return it.hash(); }
};
