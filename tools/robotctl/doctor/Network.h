#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "doctor/Finding.h"
#include "doctor/Machine.h"

namespace robotctl::doctor {

/// The group in which DDS participants announce themselves.
inline constexpr char kDiscoveryGroup[] = "239.255.0.1";

struct NetworkInterface {
  std::string name;
  unsigned index = 0;
  bool up = false;
  bool carrier = false;  ///< a cable, a link
  bool multicast = false;
  bool loopback = false;
  std::uint32_t address = 0;  ///< the first IPv4 address, network byte order; 0: none

  [[nodiscard]] bool usable() const { return up && address != 0; }
  [[nodiscard]] std::string addressText() const;
};

[[nodiscard]] std::vector<NetworkInterface> readInterfaces();

/// Those that DDS may use: the named one, or all; usable ones only.
[[nodiscard]] std::vector<NetworkInterface> usableInterfaces(
    const std::vector<NetworkInterface>& all, const Machine& machine);

/// A UDP socket that closes itself.
class UdpSocket {
 public:
  /// Bound to `address` (network byte order; 0: any) and any port. Not open when the system
  /// refuses.
  explicit UdpSocket(std::uint32_t address);
  ~UdpSocket();
  UdpSocket(UdpSocket&& other) noexcept;
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;
  UdpSocket& operator=(UdpSocket&&) = delete;

  [[nodiscard]] bool isOpen() const { return fd_ >= 0; }
  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] std::uint16_t port() const;
  /// Multicast leaves through that interface, and comes back to this machine.
  bool sendThrough(const NetworkInterface& interface) const;
  bool join(const char* group, const NetworkInterface& interface) const;
  bool send(const void* data, std::size_t size, std::uint32_t address, std::uint16_t port) const;

 private:
  int fd_;
};

/// Is there an interface, is it up, does multicast work on it.
[[nodiscard]] Findings checkNetwork(const std::vector<NetworkInterface>& all,
                                    const Machine& machine);

}  // namespace robotctl::doctor
