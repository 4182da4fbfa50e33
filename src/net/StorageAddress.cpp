#include "net/StorageAddress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace NFramework {
namespace {

using Held = std::variant<std::monostate, IPv4Address, IPv6Address>;

/// What `ask` says of the address that is held, or `none` when there is none.
template <class Answer, class Question>
Answer answer(const Held& held, Answer none, Question ask) {
  if (const auto* const ipv4 = std::get_if<IPv4Address>(&held)) return ask(*ipv4);
  if (const auto* const ipv6 = std::get_if<IPv6Address>(&held)) return ask(*ipv6);
  return none;
}

template <class Raw>
Raw copyOf(const sockaddr_storage& storage) {
  Raw raw;
  std::memcpy(&raw, &storage, sizeof(raw));
  return raw;
}

/// The one of the two families that is meant.
template <class IfIPv4, class IfIPv6>
StorageAddress choose(Family family, IfIPv4 ipv4, IfIPv6 ipv6) {
  if (family == Family::kIPv4) return ipv4;
  if (family == Family::kIPv6) return ipv6;
  return {};
}

}  // namespace

Result<StorageAddress> StorageAddress::from(const sockaddr_storage& raw, socklen_t size) {
  constexpr const char* kAttempted = "take an address from the system";
  const bool hasFamily = size >= offsetof(sockaddr_storage, ss_family) + sizeof(raw.ss_family);
  const int family = hasFamily ? raw.ss_family : AF_UNSPEC;
  if (family != AF_INET && family != AF_INET6) return Error{EAFNOSUPPORT, kAttempted};
  if (size < (family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6))) {
    return Error{EINVAL, kAttempted};
  }
  if (family == AF_INET) return StorageAddress(IPv4Address(copyOf<sockaddr_in>(raw)));
  return StorageAddress(IPv6Address(copyOf<sockaddr_in6>(raw)));
}

Result<StorageAddress> StorageAddress::parse(std::string_view text) {
  const bool isIPv6 = text.substr(0, 1) == "[" || std::count(text.begin(), text.end(), ':') > 1;
  if (!isIPv6) {
    const auto address = IPv4Address::parse(text);
    if (!address) return address.error();
    return StorageAddress(*address);
  }
  const auto address = IPv6Address::parse(text);
  if (!address) return address.error();
  return StorageAddress(*address);
}

StorageAddress StorageAddress::any(Family family, std::uint16_t port) {
  return choose(family, IPv4Address::any(port), IPv6Address::any(port));
}

StorageAddress StorageAddress::loopback(Family family, std::uint16_t port) {
  return choose(family, IPv4Address::loopback(port), IPv6Address::loopback(port));
}

Family StorageAddress::family() const noexcept {
  constexpr Family kFamilies[] = {Family::kNone, Family::kIPv4, Family::kIPv6};
  return kFamilies[held_.index()];
}

std::uint16_t StorageAddress::port() const noexcept {
  return answer(held_, std::uint16_t{0}, [](const auto& address) { return address.port(); });
}

StorageAddress StorageAddress::withPort(std::uint16_t port) const noexcept {
  return answer(held_, StorageAddress(),
                [&](const auto& address) { return StorageAddress(address.withPort(port)); });
}

StorageAddress StorageAddress::withScope(std::uint32_t scope) const noexcept {
  if (const auto* const address = ipv6()) return address->withScope(scope);
  return *this;
}

bool StorageAddress::isAny() const noexcept {
  return answer(held_, false, [](const auto& address) { return address.isAny(); });
}

bool StorageAddress::isLoopback() const noexcept {
  return answer(held_, false, [](const auto& address) { return address.isLoopback(); });
}

bool StorageAddress::isMulticast() const noexcept {
  return answer(held_, false, [](const auto& address) { return address.isMulticast(); });
}

std::string StorageAddress::hostText() const {
  return answer(held_, std::string(), [](const auto& address) { return address.hostText(); });
}

std::string StorageAddress::text() const {
  return answer(held_, std::string(), [](const auto& address) { return address.text(); });
}

std::size_t StorageAddress::hash() const noexcept {
  return answer(held_, std::size_t{0}, [](const auto& address) { return address.hash(); });
}

socklen_t StorageAddress::store(sockaddr_storage& raw) const noexcept {
  return answer(held_, socklen_t{0}, [&](const auto& address) {
    const auto made = address.raw();
    std::memcpy(&raw, &made, sizeof(made));
    return static_cast<socklen_t>(sizeof(made));
  });
}

}  // namespace NFramework
