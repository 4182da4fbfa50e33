#include "net/IPv6Address.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>

#include "net/AddressText.h"
#include "net/NetworkInterface.h"

namespace NFramework {
namespace {

constexpr const char* kAttempted = "read an IPv6 address";

Error badText(const char* reason) {
  return {EINVAL, kAttempted, reason};
}

/// The parts of a text; `port` is empty when there is none to read.
struct Parts {
  std::string_view host;
  std::optional<std::string_view> scope;
  std::optional<std::string_view> port;
};

Result<Parts> partsOf(std::string_view text) {
  Parts parts;
  if (text.substr(0, 1) == "[") {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return badText("the bracket isn't closed");
    const std::string_view rest = text.substr(end + 1);
    if (!rest.empty() && rest.front() != ':') return badText("no \":\" follows the bracket");
    if (!rest.empty()) parts.port = rest.substr(1);
    text = text.substr(1, end - 1);
  }
  const std::size_t percent = text.find('%');
  parts.host = text.substr(0, percent);
  if (percent != std::string_view::npos) parts.scope = text.substr(percent + 1);
  return parts;
}

Result<std::uint32_t> scopeOf(std::string_view text) {
  if (const auto index = numberIn<std::uint32_t>(text)) {
    if (*index == 0) return badText("interfaces are counted from 1");
    return *index;
  }
  const auto interface = NetworkInterface::byName(text);
  if (!interface) return Error{interface.error().code, kAttempted, "there is no such interface"};
  return interface->index();
}

}  // namespace

IPv6Address::IPv6Address(const sockaddr_in6& raw) noexcept {
  std::memcpy(address_.data(), raw.sin6_addr.s6_addr, address_.size());
  port_ = ntohs(raw.sin6_port);
  if (takesScope()) scope_ = raw.sin6_scope_id;
}

Result<IPv6Address> IPv6Address::parse(std::string_view text) {
  const auto parts = partsOf(text);
  if (!parts) return parts.error();

  const Terminated<INET6_ADDRSTRLEN> host(parts->host);
  Bytes bytes{};
  if (!host.fits() || ::inet_pton(AF_INET6, host.get(), bytes.data()) != 1) {
    return badText("it isn't an address");
  }
  const auto port = numberIn<std::uint16_t>(parts->port.value_or("0"));
  if (!port) return badText(kBadPort);

  const IPv6Address address(bytes, *port);
  if (!parts->scope) return address;
  if (!address.takesScope()) return badText("an address of more than one link takes no scope");
  const auto scope = scopeOf(*parts->scope);
  if (!scope) return scope.error();
  return address.withScope(*scope);
}

std::string IPv6Address::hostText() const {
  char text[INET6_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET6, address_.data(), text, sizeof(text));
  return scope_ == 0 ? std::string(text) : std::string(text) + "%" + std::to_string(scope_);
}

std::string IPv6Address::text() const {
  std::string text("[");
  text += hostText();
  text += "]:";
  return text += std::to_string(port_);
}

sockaddr_in6 IPv6Address::raw() const noexcept {
  sockaddr_in6 raw{};
  raw.sin6_family = AF_INET6;
  raw.sin6_port = htons(port_);
  std::memcpy(raw.sin6_addr.s6_addr, address_.data(), address_.size());
  raw.sin6_scope_id = scope_;
  return raw;
}

std::size_t IPv6Address::hash() const noexcept {
  const std::string_view bytes(reinterpret_cast<const char*>(address_.data()), address_.size());
  const auto rest = std::hash<std::uint64_t>{}(std::uint64_t{scope_} << 16 | port_);
  return std::hash<std::string_view>{}(bytes)*31 + rest;
}

}  // namespace NFramework
