#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// The datagrams in which DDS participants announce themselves (DDSI-RTPS 2.x, participant
/// discovery). Spoken here without the DDS library: so every domain can be asked at once, and the
/// ones that applications don't join too.
namespace robotctl::doctor {

using GuidPrefix = std::array<std::uint8_t, 12>;

/// A participant as it announces itself. Texts are as they came.
struct Participant {
  GuidPrefix prefix{};
  std::string name;
  std::string userData;
  std::map<std::string, std::string> properties;  ///< "__ProcessName", "__Pid", "__Hostname", ...
  std::uint32_t address = 0;                      ///< IPv4, network byte order; 0: none told

  [[nodiscard]] std::string property(const std::string& key) const;
  /// "virtual-robot (process 812 on lab3, 192.168.1.7)", as far as it is known; printable.
  [[nodiscard]] std::string describe() const;
  /// It belongs to this very process.
  [[nodiscard]] bool isOwn() const;
};

/// An announcement of a participant with nothing to offer, who is forgotten after `leaseSeconds`.
/// Whoever hears it announces itself in turn to `address` (network byte order) and `port`.
[[nodiscard]] std::vector<std::uint8_t> probe(const GuidPrefix& prefix, std::uint32_t domain,
                                              std::uint32_t address, std::uint16_t port,
                                              std::uint32_t leaseSeconds);

/// The first announcement in a datagram; nothing when it holds none or can't be read. Takes any
/// bytes.
[[nodiscard]] std::optional<Participant> readAnnouncement(const std::uint8_t* data,
                                                          std::size_t size);

}  // namespace robotctl::doctor
