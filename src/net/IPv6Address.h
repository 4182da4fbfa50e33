#pragma once

#include <netinet/in.h>

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "net/Result.h"

namespace NFramework {

/// An IPv6 address with a port and, where the address means something on one link only, the scope:
/// the index of the interface. A value; ordered by address, then scope, then port.
class IPv6Address {
 public:
  /// In the order of the network.
  using Bytes = std::array<std::uint8_t, 16>;

  /// [::]:0
  constexpr IPv6Address() noexcept = default;
  /// `scope`: 0 for none; dropped where takesScope() is false, as the system ignores it there.
  constexpr IPv6Address(const Bytes& address, std::uint16_t port, std::uint32_t scope = 0) noexcept
      : address_(address), port_(port) {
    if (takesScope()) scope_ = scope;
  }
  explicit IPv6Address(const sockaddr_in6& raw) noexcept;

  /// "2001:db8::1", "[2001:db8::1]" (port 0), "[2001:db8::1]:5000", each with "%" and a scope
  /// behind the address where takesScope() holds: "[fe80::1%eth0]:5000", "fe80::1%2". A scope of
  /// digits is an index, other text the name of an interface of this machine. Else an error: EINVAL
  /// for the text, ENODEV for an interface that isn't there. Never blocks; a name costs a system
  /// call.
  static Result<IPv6Address> parse(std::string_view text);
  static constexpr IPv6Address any(std::uint16_t port) { return {Bytes{}, port}; }
  static constexpr IPv6Address loopback(std::uint16_t port) {
    return {Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, port};
  }

  [[nodiscard]] constexpr const Bytes& address() const noexcept { return address_; }
  [[nodiscard]] constexpr std::uint16_t port() const noexcept { return port_; }
  /// The interface's index, 0 for none.
  [[nodiscard]] constexpr std::uint32_t scope() const noexcept { return scope_; }
  [[nodiscard]] constexpr IPv6Address withPort(std::uint16_t port) const noexcept {
    return {address_, port, scope_};
  }
  [[nodiscard]] constexpr IPv6Address withScope(std::uint32_t scope) const noexcept {
    return {address_, port_, scope};
  }
  [[nodiscard]] constexpr bool isAny() const noexcept { return address_ == Bytes{}; }
  [[nodiscard]] constexpr bool isLoopback() const noexcept {
    return address_ == loopback(0).address_;
  }
  [[nodiscard]] constexpr bool isMulticast() const noexcept { return address_[0] == 0xFF; }
  /// True for link-local addresses (fe80::/10) and for groups of an interface or a link (ff01, ff02
  /// and the like).
  [[nodiscard]] constexpr bool takesScope() const noexcept {
    if (isMulticast()) return (address_[1] & 0x0F) == 1 || (address_[1] & 0x0F) == 2;
    return address_[0] == 0xFE && (address_[1] & 0xC0) == 0x80;
  }

  /// "fe80::1%2", with the scope as a number
  [[nodiscard]] std::string hostText() const;
  /// "[fe80::1%2]:5000", with the port even when it is 0. What parse() takes.
  [[nodiscard]] std::string text() const;
  [[nodiscard]] sockaddr_in6 raw() const noexcept;
  [[nodiscard]] std::size_t hash() const noexcept;

  friend constexpr auto operator<=>(const IPv6Address&, const IPv6Address&) = default;

 private:
  Bytes address_{};
  std::uint32_t scope_ = 0;
  std::uint16_t port_ = 0;
};

}  // namespace NFramework

template <>
struct std::hash<NFramework::IPv6Address> {
  std::size_t operator()(const NFramework::IPv6Address& it) const noexcept { return it.hash(); }
};
