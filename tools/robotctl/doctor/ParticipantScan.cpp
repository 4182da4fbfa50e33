#include "doctor/ParticipantScan.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "pbase/CTime.h"
#include "pbase/Utils.h"

namespace robotctl::doctor {
namespace {

using Pexal::PBase::CTime;

constexpr std::uint32_t kDomains = 231;
constexpr std::uint32_t kSlots = 10;
constexpr std::uint32_t kLeaseSeconds = 3;
constexpr int kPollMs = 50;
constexpr std::size_t kLargestDatagram = 65536;
// Who floods the network holds nobody up, and fills nothing.
constexpr int kDatagramsAtOnce = 256;
constexpr std::size_t kMostParticipants = 1024;

// DDSI's well-known ports.
std::uint16_t multicastPort(std::uint32_t domain) {
  return static_cast<std::uint16_t>(7400 + 250 * domain);
}
std::uint16_t slotPort(std::uint32_t domain, std::uint32_t slot) {
  return static_cast<std::uint16_t>(multicastPort(domain) + 10 + 2 * slot);
}

/// A participant of ours with the domain in its name, so that an answer tells which one it is of:
/// it is directed to that name.
GuidPrefix prefixFor(std::uint32_t domain, const std::array<std::uint8_t, 16>& random) {
  GuidPrefix prefix{};
  std::copy_n(random.begin(), prefix.size(), prefix.begin());
  prefix[10] = static_cast<std::uint8_t>(domain >> 8);
  prefix[11] = static_cast<std::uint8_t>(domain);
  return prefix;
}

class Scan {
 public:
  explicit Scan(const NetworkInterface& interface)
      : interface_(interface), socket_(interface.address) {
    const int buffer = 1 << 20;
    if (!socket_.isOpen()) return;
    ::setsockopt(socket_.fd(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    throughInterface_ = socket_.sendThrough(interface);
  }

  [[nodiscard]] const UdpSocket& socket() const { return socket_; }

  void ask(std::uint32_t domain) const {
    if (!socket_.isOpen()) return;
    const auto datagram = probe(prefixFor(domain, random_), domain, interface_.address,
                                socket_.port(), kLeaseSeconds);
    if (throughInterface_ && interface_.multicast) {
      socket_.send(datagram.data(), datagram.size(), ::inet_addr(kDiscoveryGroup),
                   multicastPort(domain));
    }
    for (std::uint32_t slot = 0; slot < kSlots; ++slot) {
      socket_.send(datagram.data(), datagram.size(), interface_.address, slotPort(domain, slot));
    }
  }

  void collect(std::vector<SeenParticipant>& all) {
    for (int count = 0; count < kDatagramsAtOnce; ++count) {
      const ssize_t size = ::recv(socket_.fd(), datagram_.data(), datagram_.size(), MSG_DONTWAIT);
      if (size < 0) return;
      if (all.size() >= kMostParticipants) continue;
      const auto domain = addressee(static_cast<std::size_t>(size));
      auto found = readAnnouncement(datagram_.data(), static_cast<std::size_t>(size));
      if (!domain || !found) continue;
      const bool known = std::any_of(all.begin(), all.end(), [&](const SeenParticipant& seen) {
        return seen.domain == *domain && seen.participant.prefix == found->prefix;
      });
      if (!known) all.push_back({*domain, interface_.name, std::move(*found)});
    }
  }

 private:
  /// The domain that an answer is of: its first submessage names the one it is for.
  [[nodiscard]] std::optional<std::uint32_t> addressee(std::size_t size) const {
    constexpr std::uint8_t kDestination = 0x0e;
    std::size_t at = 20;
    while (size >= at + 4) {
      const bool littleEndian = (datagram_[at + 1] & 1) != 0;
      const std::size_t length = littleEndian ? datagram_[at + 2] | datagram_[at + 3] << 8
                                              : datagram_[at + 3] | datagram_[at + 2] << 8;
      if (datagram_[at] == kDestination && length >= 12 && size >= at + 4 + 12) {
        const std::uint8_t* const prefix = datagram_.data() + at + 4;
        if (std::memcmp(prefix, random_.data(), 10) != 0) return {};
        return std::uint32_t{prefix[10]} << 8 | prefix[11];
      }
      if (length == 0) break;
      at += 4 + length;
    }
    return {};
  }

  const NetworkInterface& interface_;
  const std::array<std::uint8_t, 16> random_ = Pexal::Utils::createRandomUUIDBytes();
  UdpSocket socket_;
  bool throughInterface_ = false;
  std::vector<std::uint8_t> datagram_ = std::vector<std::uint8_t>(kLargestDatagram);
};

}  // namespace

std::vector<SeenParticipant> scanDomains(const std::vector<NetworkInterface>& interfaces,
                                         std::uint32_t windowMs,
                                         const std::function<void()>& pause) {
  std::vector<Scan> scans;
  scans.reserve(interfaces.size());
  for (const NetworkInterface& interface : interfaces) scans.emplace_back(interface);
  std::vector<SeenParticipant> all;
  const std::uint64_t begin = CTime::getCurrentMilliSecond();
  const auto isOver = [&] { return CTime::getCurrentMilliSecond() >= begin + windowMs; };
  const auto askAll = [&] {
    for (std::uint32_t domain = 0; domain < kDomains && !isOver(); ++domain) {
      pause();
      for (Scan& scan : scans) {
        scan.ask(domain);
        scan.collect(all);
      }
    }
  };
  askAll();
  bool again = false;
  std::vector<pollfd> wanted;
  for (const Scan& scan : scans) wanted.push_back({scan.socket().fd(), POLLIN, 0});
  while (!isOver()) {
    pause();
    ::poll(wanted.data(), wanted.size(), kPollMs);
    for (Scan& scan : scans) scan.collect(all);
    // Once more: a datagram may get lost.
    if (!again && CTime::getCurrentMilliSecond() > begin + windowMs / 2) {
      again = true;
      askAll();
    }
  }
  return all;
}

}  // namespace robotctl::doctor
