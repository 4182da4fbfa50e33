#include "net/Resolve.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace NFramework {
namespace {

constexpr const char* kAttempted = "resolve a host name";

/// The code of errno that says the same as the resolver's own.
constexpr struct {
  int resolver;
  int system;
} kCodes[] = {
    {EAI_NONAME, ENOENT}, {EAI_NODATA, ENOENT}, {EAI_ADDRFAMILY, ENOENT},
    {EAI_AGAIN, EAGAIN},  {EAI_MEMORY, ENOMEM}, {EAI_FAMILY, EAFNOSUPPORT},
};

Error resolverError(int code) {
  if (code == EAI_SYSTEM) return systemError(kAttempted);
  for (const auto& row : kCodes) {
    if (row.resolver == code) return {row.system, kAttempted, ::gai_strerror(code)};
  }
  return {EIO, kAttempted, ::gai_strerror(code)};
}

Result<StorageAddress> addressOf(const addrinfo& entry, std::uint16_t port) {
  sockaddr_storage raw{};
  const socklen_t size = std::min<socklen_t>(entry.ai_addrlen, sizeof(raw));
  std::memcpy(&raw, entry.ai_addr, size);
  const auto address = StorageAddress::from(raw, size);
  if (!address) return address.error();
  return address->withPort(port);
}

}  // namespace

Result<std::vector<StorageAddress>> resolve(const std::string& host, std::uint16_t port,
                                            Family family) {
  if (host.empty() || host.find('\0') != std::string::npos) {
    return Error{EINVAL, kAttempted, "it isn't a name"};
  }
  addrinfo hints{};
  hints.ai_family = static_cast<int>(family);
  hints.ai_socktype = SOCK_DGRAM;  // else each address comes once per type of socket
  addrinfo* found = nullptr;
  if (const int code = ::getaddrinfo(host.c_str(), nullptr, &hints, &found); code != 0) {
    return resolverError(code);
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);

  std::vector<StorageAddress> addresses;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    if (const auto address = addressOf(*entry, port)) addresses.push_back(*address);
  }
  if (addresses.empty()) return Error{ENOENT, kAttempted};
  return addresses;
}

}  // namespace NFramework
