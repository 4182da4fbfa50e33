#pragma once

#include <sys/socket.h>

#include <cstdint>

#include "net/Result.h"
#include "net/StorageAddress.h"

namespace NFramework {

/// A socket's descriptor and what sockets of every kind can do. It belongs to one object at a time
/// (move only) and is closed once: by close(), by the destructor or when another is moved in.
///
/// Threading contract: no lock inside. Any threads may use an open socket at the same time, as the
/// system allows (one that sends and one that receives, say). Moving, close() and destruction need
/// the object to themselves; there is no waking of a thread that waits in it, so give waits the
/// time-out that closing may take. Nothing throws.
///
/// Operations on a closed socket fail with EBADF. An error says what was attempted.
class SocketBase {
 public:
  SocketBase(const SocketBase&) = delete;
  SocketBase& operator=(const SocketBase&) = delete;

  [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
  /// For poll() and the like; -1 when closed. It stays this object's.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
  /// kNone when closed.
  [[nodiscard]] Family family() const noexcept { return family_; }
  /// Does nothing on a closed socket.
  void close() noexcept;

  /// The descriptor's own flag, for those who use it past this object: the operations of the
  /// classes here keep to their time-outs either way.
  Result<> setNonBlocking(bool on);

  /// Addresses of the other family: EAFNOSUPPORT. Port 0 takes any that is free.
  Result<> bind(const StorageAddress& address);
  /// What it is bound to (after bind to port 0: the port that was taken).
  Result<StorageAddress> localAddress() const;
  /// The peer; ENOTCONN without one.
  Result<StorageAddress> remoteAddress() const;

  /// Before bind. Address: several sockets may bind the same address and port; of multicast each
  /// gets a copy, of unicast only one gets it. Port: the same for sockets of one user, all of which
  /// have to set it; unicast is spread over them.
  Result<> setReuseAddress(bool on);
  Result<> setReusePort(bool on);

  /// Asks for a buffer of `bytes` and returns the size that the system really gave: its own count
  /// has room for its records and is twice what was asked for, within its limits
  /// (net.core.rmem_max, wmem_max). EINVAL below 1.
  Result<int> setReceiveBufferSize(int bytes);
  Result<int> setSendBufferSize(int bytes);

 protected:
  SocketBase() = default;
  SocketBase(SocketBase&& other) noexcept;
  SocketBase& operator=(SocketBase&& other) noexcept;
  ~SocketBase() { close(); }

  /// `type`: SOCK_DGRAM and the like. Closes what was open. Not inherited by programs that this
  /// process starts. An IPv6 socket is for IPv6 only, whatever the system's default.
  Result<> open(Family family, int type);

  /// Waits until poll() reports one of `events` or an error to fetch, or the deadline (microseconds
  /// of CTime) has passed: ETIMEDOUT. Goes on when a signal interrupts it. For a VirtualClock the
  /// thread counts as blocked, but the wait itself is the system's and takes real time.
  Result<> waitFor(short events, std::uint64_t deadlineUs, const char* attempted) const;

  template <class Value>
  Result<> setOption(int level, int number, const Value& value, const char* attempted) {
    if (::setsockopt(descriptor_, level, number, &value, sizeof(value)) == 0) return {};
    return systemError(attempted);
  }
  Result<int> intOption(int level, int number, const char* attempted) const;
  /// EAFNOSUPPORT when the address is of another family than the (open) socket.
  Result<> requireFamily(const StorageAddress& address, const char* attempted) const;
  Result<> connectTo(const StorageAddress& address);

 private:
  Result<int> setBufferSize(int number, int bytes, const char* attempted);

  int descriptor_ = -1;
  Family family_ = Family::kNone;
};

}  // namespace NFramework
