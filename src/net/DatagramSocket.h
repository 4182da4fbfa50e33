#pragma once

#include <cstddef>
#include <cstdint>

#include "net/NetworkInterface.h"
#include "net/Result.h"
#include "net/SocketBase.h"
#include "net/StorageAddress.h"

namespace NFramework {

struct FamilyOption;

/// A UDP socket, of either family. See SocketBase for threads and errors.
///
/// Sending and receiving make one system call where they needn't wait, allocate nothing, and go on
/// when a signal interrupts them. Time-outs are milliseconds of CTime; 0 doesn't wait. A time-out
/// that runs out is the error ETIMEDOUT.
///
/// A socket that sent to a port where nobody is learns of that later: on a connected socket the
/// next operation fails with ECONNREFUSED, once.
class DatagramSocket final : public SocketBase {
 public:
  /// What came, and from whom.
  struct Received {
    std::size_t size = 0;  ///< bytes of the datagram; 0 is a datagram too
    StorageAddress from;
  };

  /// Closed.
  DatagramSocket() = default;

  /// Neither bound nor connected. It gets multicast of those groups only that it joined itself
  /// (system default: those that any socket of the machine joined). EAFNOSUPPORT where the machine
  /// lacks the family, EMFILE when the process has no descriptor left.
  static Result<DatagramSocket> open(Family family);

  /// The peer: where send() goes, and the only one whose datagrams are received from then on.
  /// Sends nothing; connecting again changes it.
  Result<> connect(const StorageAddress& peer) { return connectTo(peer); }

  /// Hands one datagram over, whole or not at all; `timeoutMs` is for room in the send buffer.
  /// EMSGSIZE above what a datagram holds (65507 bytes over IPv4, 65527 over IPv6), EACCES for a
  /// broadcast address without setBroadcast, EDESTADDRREQ without a peer.
  Result<> send(const void* bytes, std::size_t size, std::uint32_t timeoutMs = 0);
  Result<> sendTo(const void* bytes, std::size_t size, const StorageAddress& to,
                  std::uint32_t timeoutMs = 0);

  /// Takes one datagram and returns its size. One that is larger than `capacity` is gone: EMSGSIZE,
  /// and `bytes` holds its beginning. So a cut datagram is never taken for a whole one.
  Result<std::size_t> receive(void* bytes, std::size_t capacity, std::uint32_t timeoutMs);
  Result<Received> receiveFrom(void* bytes, std::size_t capacity, std::uint32_t timeoutMs);

  /// Membership of a group on one interface; any() leaves it to the routes. Ends with the socket.
  /// Receiving takes a bind as well: to the group with its port and, for IPv6, the interface as its
  /// scope (StorageAddress::withScope). Bound to the wildcard address, a socket gets unicast too,
  /// and an IPv6 one that joined a group gets what comes for the group on any interface where some
  /// socket of the machine joined it.
  /// EINVAL when it isn't a group, ENODEV when the interface is missing, EADDRINUSE when joined
  /// already, EADDRNOTAVAIL when not joined.
  Result<> joinGroup(const StorageAddress& group, NetworkInterface interface);
  Result<> leaveGroup(const StorageAddress& group, NetworkInterface interface);

  /// Where multicast leaves, whatever the routes say; ENODEV when it is missing. any() goes back to
  /// the routes.
  Result<> setMulticastInterface(NetworkInterface interface);
  /// How many routers multicast may pass, counting from 1 (which is also the default: this link).
  /// 0: not beyond this machine (leave the loop on then: without it Linux lets IPv6 out to the link
  /// all the same, and nobody else could hear it anyway). EINVAL outside 0 to 255.
  Result<> setMulticastHops(int hops);
  Result<int> multicastHops() const;
  /// Whether sockets of this machine, this one too, get what it sends to groups that they joined.
  /// On before this call. (An interface that is a loopback itself returns everything anyway.)
  Result<> setMulticastLoop(bool on);
  Result<bool> multicastLoop() const;

  /// The same count for unicast and broadcast. EINVAL outside 1 to 255.
  Result<> setHops(int hops);
  Result<int> hops() const;
  /// Off before this call. IPv6 has no broadcast and ignores it.
  Result<> setBroadcast(bool on);

 private:
  Result<> set(const FamilyOption& option, int value);
  Result<int> get(const FamilyOption& option) const;
  Result<> changeMembership(int number, const StorageAddress& group, NetworkInterface interface,
                            const char* attempted);
};

}  // namespace NFramework
