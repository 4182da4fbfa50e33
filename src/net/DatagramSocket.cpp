#include "net/DatagramSocket.h"

#include <netinet/in.h>
#include <poll.h>

#include <cerrno>
#include <cstring>

#include "pbase/CTime.h"

namespace NFramework {

/// An option that both families have, each with its own number; the values that it takes.
struct FamilyOption {
  int ipv4;
  int ipv6;
  int lowest;
  int highest;
  const char* attempted;
};

namespace {

constexpr FamilyOption kMulticastAll{IP_MULTICAST_ALL, IPV6_MULTICAST_ALL, 0, 1,
                                     "restrict a socket to its own groups"};
constexpr FamilyOption kMulticastHops{IP_MULTICAST_TTL, IPV6_MULTICAST_HOPS, 0, 255,
                                      "set or get the hops of multicast"};
constexpr FamilyOption kMulticastLoop{IP_MULTICAST_LOOP, IPV6_MULTICAST_LOOP, 0, 1,
                                      "set or get the loop of multicast"};
constexpr FamilyOption kHops{IP_TTL, IPV6_UNICAST_HOPS, 1, 255, "set or get the hops"};

int levelOf(Family family) {
  return family == Family::kIPv6 ? IPPROTO_IPV6 : IPPROTO_IP;
}

int numberOf(Family family, const FamilyOption& option) {
  return family == Family::kIPv6 ? option.ipv6 : option.ipv4;
}

/// Tries until it succeeds, fails, or a wait for `events` has run out. `attempt` doesn't block and
/// is what system calls are: a count, or -1 with errno. `wait` takes a deadline.
template <class Attempt, class Wait>
Result<std::size_t> persist(std::uint32_t timeoutMs, const char* attempted, Attempt attempt,
                            Wait wait) {
  std::uint64_t deadlineUs = 0;
  for (;;) {
    const ssize_t count = attempt();
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return systemError(attempted);
    if (deadlineUs == 0) {
      deadlineUs = Pexal::PBase::CTime::getCurrentMicroSecond() + std::uint64_t{timeoutMs} * 1000;
    }
    if (const auto ready = wait(deadlineUs); !ready) return ready.error();
  }
}

}  // namespace

Result<DatagramSocket> DatagramSocket::open(Family family) {
  DatagramSocket made;
  if (const auto opened = made.SocketBase::open(family, SOCK_DGRAM); !opened) {
    return opened.error();
  }
  if (const auto restricted = made.set(kMulticastAll, 0); !restricted) return restricted.error();
  return made;
}

Result<> DatagramSocket::send(const void* bytes, std::size_t size, std::uint32_t timeoutMs) {
  constexpr const char* kAttempted = "send a datagram";
  const auto sent = persist(
      timeoutMs, kAttempted, [&] { return ::send(descriptor(), bytes, size, MSG_DONTWAIT); },
      [&](std::uint64_t deadlineUs) { return waitFor(POLLOUT, deadlineUs, kAttempted); });
  return sent ? Result<>() : sent.error();
}

Result<> DatagramSocket::sendTo(const void* bytes, std::size_t size, const StorageAddress& to,
                                std::uint32_t timeoutMs) {
  constexpr const char* kAttempted = "send a datagram to an address";
  if (const auto fits = requireFamily(to, kAttempted); !fits) return fits;
  sockaddr_storage raw;
  const socklen_t rawSize = to.store(raw);
  const auto sent = persist(
      timeoutMs, kAttempted,
      [&] {
        return ::sendto(descriptor(), bytes, size, MSG_DONTWAIT,
                        reinterpret_cast<const sockaddr*>(&raw), rawSize);
      },
      [&](std::uint64_t deadlineUs) { return waitFor(POLLOUT, deadlineUs, kAttempted); });
  return sent ? Result<>() : sent.error();
}

Result<std::size_t> DatagramSocket::receive(void* bytes, std::size_t capacity,
                                            std::uint32_t timeoutMs) {
  const auto received = receiveFrom(bytes, capacity, timeoutMs);
  if (!received) return received.error();
  return received->size;
}

Result<DatagramSocket::Received> DatagramSocket::receiveFrom(void* bytes, std::size_t capacity,
                                                             std::uint32_t timeoutMs) {
  constexpr const char* kAttempted = "receive a datagram";
  sockaddr_storage raw;
  socklen_t rawSize = 0;
  const auto size = persist(
      timeoutMs, kAttempted,
      [&] {
        rawSize = sizeof(raw);
        // With MSG_TRUNC it is the datagram's size that is returned, however much fitted.
        return ::recvfrom(descriptor(), bytes, capacity, MSG_DONTWAIT | MSG_TRUNC,
                          reinterpret_cast<sockaddr*>(&raw), &rawSize);
      },
      [&](std::uint64_t deadlineUs) { return waitFor(POLLIN, deadlineUs, kAttempted); });
  if (!size) return size.error();
  if (*size > capacity) return Error{EMSGSIZE, kAttempted, "it is larger than the space for it"};
  const auto from = StorageAddress::from(raw, rawSize);
  if (!from) return from.error();
  return Received{*size, *from};
}

Result<> DatagramSocket::joinGroup(const StorageAddress& group, NetworkInterface interface) {
  return changeMembership(MCAST_JOIN_GROUP, group, interface, "join a multicast group");
}

Result<> DatagramSocket::leaveGroup(const StorageAddress& group, NetworkInterface interface) {
  return changeMembership(MCAST_LEAVE_GROUP, group, interface, "leave a multicast group");
}

Result<> DatagramSocket::changeMembership(int number, const StorageAddress& group,
                                          NetworkInterface interface, const char* attempted) {
  if (const auto fits = requireFamily(group, attempted); !fits) return fits;
  if (!group.isMulticast()) return Error{EINVAL, attempted, "it isn't a multicast address"};
  group_req request{};
  request.gr_interface = interface.index();
  group.store(request.gr_group);
  return setOption(levelOf(family()), number, request, attempted);
}

Result<> DatagramSocket::setMulticastInterface(NetworkInterface interface) {
  constexpr const char* kAttempted = "set the interface of multicast";
  const int index = static_cast<int>(interface.index());
  if (family() == Family::kIPv6) {
    return setOption(IPPROTO_IPV6, IPV6_MULTICAST_IF, index, kAttempted);
  }
  ip_mreqn request{};
  request.imr_ifindex = index;
  const auto done = setOption(IPPROTO_IP, IP_MULTICAST_IF, request, kAttempted);
  // IPv4's word for a missing interface; both families shall say the same.
  if (!done && done.error().code == EADDRNOTAVAIL) return Error{ENODEV, kAttempted};
  return done;
}

Result<> DatagramSocket::set(const FamilyOption& option, int value) {
  if (value < option.lowest || value > option.highest) return Error{EINVAL, option.attempted};
  return setOption(levelOf(family()), numberOf(family(), option), value, option.attempted);
}

Result<int> DatagramSocket::get(const FamilyOption& option) const {
  return intOption(levelOf(family()), numberOf(family(), option), option.attempted);
}

Result<> DatagramSocket::setMulticastHops(int hops) {
  return set(kMulticastHops, hops);
}

Result<int> DatagramSocket::multicastHops() const {
  return get(kMulticastHops);
}

Result<> DatagramSocket::setMulticastLoop(bool on) {
  return set(kMulticastLoop, int{on});
}

Result<bool> DatagramSocket::multicastLoop() const {
  const auto value = get(kMulticastLoop);
  if (!value) return value.error();
  return *value != 0;
}

Result<> DatagramSocket::setHops(int hops) {
  return set(kHops, hops);
}

Result<int> DatagramSocket::hops() const {
  return get(kHops);
}

Result<> DatagramSocket::setBroadcast(bool on) {
  return setOption(SOL_SOCKET, SO_BROADCAST, int{on}, "set whether a socket may broadcast");
}

}  // namespace NFramework
