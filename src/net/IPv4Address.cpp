#include "net/IPv4Address.h"

#include <arpa/inet.h>

#include <cerrno>

#include "net/AddressText.h"

namespace NFramework {

Result<IPv4Address> IPv4Address::parse(std::string_view text) {
  constexpr const char* kAttempted = "read an IPv4 address";
  const std::size_t colon = text.find(':');
  std::optional<std::uint16_t> port = std::uint16_t{0};
  if (colon != std::string_view::npos) port = numberIn<std::uint16_t>(text.substr(colon + 1));

  const Terminated<INET_ADDRSTRLEN> host(text.substr(0, colon));
  in_addr address{};
  if (!host.fits() || ::inet_pton(AF_INET, host.get(), &address) != 1) {
    return Error{EINVAL, kAttempted, "it isn't four numbers from 0 to 255 with dots between them"};
  }
  if (!port) return Error{EINVAL, kAttempted, kBadPort};
  return IPv4Address(ntohl(address.s_addr), *port);
}

std::string IPv4Address::hostText() const {
  char text[INET_ADDRSTRLEN] = "";
  const in_addr address{htonl(address_)};
  ::inet_ntop(AF_INET, &address, text, sizeof(text));
  return text;
}

std::string IPv4Address::text() const {
  return hostText() + ":" + std::to_string(port_);
}

sockaddr_in IPv4Address::raw() const noexcept {
  sockaddr_in raw{};
  raw.sin_family = AF_INET;
  raw.sin_port = htons(port_);
  raw.sin_addr.s_addr = htonl(address_);
  return raw;
}

std::size_t IPv4Address::hash() const noexcept {
  return std::hash<std::uint64_t>{}(std::uint64_t{address_} << 16 | port_);
}

}  // namespace NFramework
