#pragma once

#include <sys/socket.h>

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <variant>

#include "net/IPv4Address.h"
#include "net/IPv6Address.h"
#include "net/Result.h"

namespace NFramework {

enum class Family : sa_family_t { kNone = AF_UNSPEC, kIPv4 = AF_INET, kIPv6 = AF_INET6 };

/// An address of either family, or none (a default one). A value; no address comes before IPv4, and
/// IPv4 before IPv6.
class StorageAddress {
 public:
  constexpr StorageAddress() noexcept = default;
  constexpr StorageAddress(const IPv4Address& address) noexcept : held_(address) {}
  constexpr StorageAddress(const IPv6Address& address) noexcept : held_(address) {}
  /// `size`: what the system says of `raw`. EAFNOSUPPORT when it is of another family, EINVAL when
  /// it is too short for its own.
  static Result<StorageAddress> from(const sockaddr_storage& raw, socklen_t size);

  /// A text that either of the two takes: IPv6 has brackets or two colons.
  static Result<StorageAddress> parse(std::string_view text);
  /// The wildcard and the loopback address of a family; none of Family::kNone.
  static StorageAddress any(Family family, std::uint16_t port);
  static StorageAddress loopback(Family family, std::uint16_t port);

  [[nodiscard]] Family family() const noexcept;
  /// Null when it is of another family.
  [[nodiscard]] const IPv4Address* ipv4() const noexcept {
    return std::get_if<IPv4Address>(&held_);
  }
  [[nodiscard]] const IPv6Address* ipv6() const noexcept {
    return std::get_if<IPv6Address>(&held_);
  }

  /// As in the two families; without an address 0, false, the same, and the empty text.
  [[nodiscard]] std::uint16_t port() const noexcept;
  [[nodiscard]] StorageAddress withPort(std::uint16_t port) const noexcept;
  /// As IPv6Address::withScope; IPv4 has no scope and stays as it is.
  [[nodiscard]] StorageAddress withScope(std::uint32_t scope) const noexcept;
  [[nodiscard]] bool isAny() const noexcept;
  [[nodiscard]] bool isLoopback() const noexcept;
  [[nodiscard]] bool isMulticast() const noexcept;
  [[nodiscard]] std::string hostText() const;
  [[nodiscard]] std::string text() const;
  [[nodiscard]] std::size_t hash() const noexcept;

  /// Writes it as system calls take it, and returns the size; 0 without an address.
  socklen_t store(sockaddr_storage& raw) const noexcept;

  friend constexpr auto operator<=>(const StorageAddress&, const StorageAddress&) = default;

 private:
  std::variant<std::monostate, IPv4Address, IPv6Address> held_;
};

}  // namespace NFramework

template <>
struct std::hash<NFramework::StorageAddress> {
  std::size_t operator()(const NFramework::StorageAddress& it) const noexcept { return it.hash(); }
};
