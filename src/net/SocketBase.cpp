#include "net/SocketBase.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "pbase/CThread.h"
#include "pbase/CTime.h"

namespace NFramework {
namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;

timespec timespecOf(std::uint64_t us) {
  return {static_cast<std::time_t>(us / kMicrosecondsPerSecond),
          static_cast<long>(us % kMicrosecondsPerSecond) * 1000};
}

using AddressCall = int (*)(int, sockaddr*, socklen_t*);

Result<StorageAddress> askFor(AddressCall call, int descriptor, const char* attempted) {
  sockaddr_storage raw{};
  socklen_t size = sizeof(raw);
  if (call(descriptor, reinterpret_cast<sockaddr*>(&raw), &size) != 0) {
    return systemError(attempted);
  }
  return StorageAddress::from(raw, size);
}

}  // namespace

SocketBase::SocketBase(SocketBase&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      family_(std::exchange(other.family_, Family::kNone)) {}

SocketBase& SocketBase::operator=(SocketBase&& other) noexcept {
  if (this == &other) return *this;
  close();
  descriptor_ = std::exchange(other.descriptor_, -1);
  family_ = std::exchange(other.family_, Family::kNone);
  return *this;
}

void SocketBase::close() noexcept {
  // Never again after EINTR: the number is free by then and may be another's already.
  if (isOpen()) ::close(descriptor_);
  descriptor_ = -1;
  family_ = Family::kNone;
}

Result<> SocketBase::open(Family family, int type) {
  close();
  if (family == Family::kNone) return Error{EAFNOSUPPORT, "open a socket"};
  descriptor_ = ::socket(static_cast<int>(family), type | SOCK_CLOEXEC, 0);
  if (!isOpen()) return systemError("open a socket");
  family_ = family;
  if (family != Family::kIPv6) return {};
  const auto restricted = setOption(IPPROTO_IPV6, IPV6_V6ONLY, 1, "open a socket for IPv6 only");
  if (!restricted) close();
  return restricted;
}

Result<> SocketBase::setNonBlocking(bool on) {
  constexpr const char* kAttempted = "set whether a socket blocks";
  const int flags = ::fcntl(descriptor_, F_GETFL);
  if (flags < 0) return systemError(kAttempted);
  const int wanted = on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
  if (::fcntl(descriptor_, F_SETFL, wanted) != 0) return systemError(kAttempted);
  return {};
}

Result<> SocketBase::bind(const StorageAddress& address) {
  constexpr const char* kAttempted = "bind a socket";
  if (const auto fits = requireFamily(address, kAttempted); !fits) return fits;
  sockaddr_storage raw{};
  const socklen_t size = address.store(raw);
  if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(&raw), size) == 0) return {};
  return systemError(kAttempted);
}

Result<> SocketBase::connectTo(const StorageAddress& address) {
  constexpr const char* kAttempted = "connect a socket";
  if (const auto fits = requireFamily(address, kAttempted); !fits) return fits;
  sockaddr_storage raw{};
  const socklen_t size = address.store(raw);
  if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&raw), size) == 0) return {};
  return systemError(kAttempted);
}

Result<StorageAddress> SocketBase::localAddress() const {
  return askFor(::getsockname, descriptor_, "get a socket's own address");
}

Result<StorageAddress> SocketBase::remoteAddress() const {
  return askFor(::getpeername, descriptor_, "get a socket's peer");
}

Result<> SocketBase::setReuseAddress(bool on) {
  return setOption(SOL_SOCKET, SO_REUSEADDR, int{on}, "set whether an address is shared");
}

Result<> SocketBase::setReusePort(bool on) {
  return setOption(SOL_SOCKET, SO_REUSEPORT, int{on}, "set whether a port is shared");
}

Result<int> SocketBase::setReceiveBufferSize(int bytes) {
  return setBufferSize(SO_RCVBUF, bytes, "set the size of a receive buffer");
}

Result<int> SocketBase::setSendBufferSize(int bytes) {
  return setBufferSize(SO_SNDBUF, bytes, "set the size of a send buffer");
}

Result<int> SocketBase::setBufferSize(int number, int bytes, const char* attempted) {
  if (bytes < 1) return Error{EINVAL, attempted};
  if (const auto set = setOption(SOL_SOCKET, number, bytes, attempted); !set) return set.error();
  return intOption(SOL_SOCKET, number, attempted);
}

Result<int> SocketBase::intOption(int level, int number, const char* attempted) const {
  int value = 0;
  socklen_t size = sizeof(value);
  if (::getsockopt(descriptor_, level, number, &value, &size) != 0) return systemError(attempted);
  return value;
}

Result<> SocketBase::requireFamily(const StorageAddress& address, const char* attempted) const {
  if (!isOpen()) return Error{EBADF, attempted};
  if (address.family() == family_) return {};
  return Error{EAFNOSUPPORT, attempted};
}

Result<> SocketBase::waitFor(short events, std::uint64_t deadlineUs, const char* attempted) const {
  for (;;) {
    const std::uint64_t now = Pexal::PBase::CTime::getCurrentMicroSecond();
    if (now >= deadlineUs) return Error{ETIMEDOUT, attempted};
    const timespec rest = timespecOf(deadlineUs - now);
    pollfd entry{descriptor_, events, 0};
    int ready = 0;
    int fault = 0;
    {
      const Pexal::PBase::ExternalWait outside;
      ready = ::ppoll(&entry, 1, &rest, nullptr);
      fault = errno;
    }
    if (ready > 0) return {};
    if (ready == 0) return Error{ETIMEDOUT, attempted};
    if (fault != EINTR) return Error{fault, attempted};
  }
}

}  // namespace NFramework
