#include "doctor/Network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "core/Text.h"
#include "pbase/CTime.h"
#include "pbase/Utils.h"

namespace robotctl::doctor {
namespace {

using Pexal::PBase::CTime;

constexpr std::uint64_t kEchoMs = 500;

sockaddr_in socketAddress(std::uint32_t address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = address;
  result.sin_port = htons(port);
  return result;
}

std::uint32_t groupAddress() {
  return ::inet_addr(kDiscoveryGroup);
}

void take(NetworkInterface& interface, const ifaddrs& entry) {
  interface.up = (entry.ifa_flags & IFF_UP) != 0;
  interface.carrier = (entry.ifa_flags & IFF_RUNNING) != 0;
  interface.multicast = (entry.ifa_flags & IFF_MULTICAST) != 0;
  interface.loopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
  if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET) return;
  sockaddr_in address{};
  std::memcpy(&address, entry.ifa_addr, sizeof address);
  if (interface.address == 0) interface.address = address.sin_addr.s_addr;
}

/// Waits until the socket receives exactly `token`.
bool hears(const UdpSocket& socket, const std::string& token) {
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kEchoMs;
  for (std::uint64_t now = CTime::getCurrentMilliSecond(); now < deadline;
       now = CTime::getCurrentMilliSecond()) {
    pollfd wanted{socket.fd(), POLLIN, 0};
    if (::poll(&wanted, 1, static_cast<int>(deadline - now)) <= 0) continue;
    char text[128];
    const ssize_t size = ::recv(socket.fd(), text, sizeof text, MSG_DONTWAIT);
    if (size > 0 && token == std::string_view(text, static_cast<std::size_t>(size))) return true;
  }
  return false;
}

/// A datagram of our own to the discovery group, on a port of our own, so that nobody else hears
/// nonsense.
bool multicastComesBack(const NetworkInterface& interface) {
  const UdpSocket receiver(0);
  const UdpSocket sender(interface.address);
  if (!receiver.isOpen() || !sender.isOpen()) return false;
  if (!receiver.join(kDiscoveryGroup, interface) || !sender.sendThrough(interface)) return false;
  const std::string token = Pexal::Utils::createRandomUUID();
  return sender.send(token.data(), token.size(), groupAddress(), receiver.port()) &&
         hears(receiver, token);
}

/// The interface through which the system would send to the group when none is named; empty: none.
std::string routeOfMulticast() {
  std::ifstream table("/proc/net/route");
  std::string line;
  std::getline(table, line);  // the heading
  std::string best;
  std::uint32_t bestMask = 0;
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string name;
    std::string skipped;
    std::uint32_t destination = 0;
    std::uint32_t mask = 0;
    words >> name >> std::hex >> destination >> skipped >> skipped >> skipped >> skipped >>
        skipped >> mask;
    // Both are written in network byte order, so of two masks the longer one is the larger there.
    const bool matches = words && (groupAddress() & mask) == destination;
    if (!matches || (!best.empty() && ntohl(mask) <= ntohl(bestMask))) continue;
    best = name;
    bestMask = mask;
  }
  return best;
}

std::string flagsText(const NetworkInterface& interface) {
  return format("%s, %smulticast, %s", interface.up ? "up" : "down",
                interface.multicast ? "" : "no ",
                interface.address != 0 ? interface.addressText().c_str() : "no IPv4 address");
}

std::string namesOf(const std::vector<NetworkInterface>& all) {
  std::string names;
  for (const NetworkInterface& interface : all) {
    names += (names.empty() ? "" : ", ") + interface.name + " (" + flagsText(interface) + ')';
  }
  return names.empty() ? "none" : names;
}

Finding checkMulticast(const NetworkInterface& interface) {
  Finding finding{"network.multicast",    Verdict::kOk, "multicast on " + interface.name,
                  "a datagram came back", {},           {}};
  const bool comesBack = multicastComesBack(interface);
  if (interface.multicast && comesBack) return finding;
  finding.cure = "sudo ip link set " + interface.name + " multicast on";
  if (!interface.multicast) {
    finding.seen = "the interface has no multicast flag";
  } else {
    finding.seen = format("a datagram to %s didn't come back within %u ms", kDiscoveryGroup,
                          static_cast<unsigned>(kEchoMs));
    finding.cure = "sudo nft list ruleset    # let UDP to 239.255.0.1 pass on " + interface.name;
  }
  if (interface.loopback && !interface.multicast) {
    // DDS asks each of this machine's participant slots then, one by one.
    finding.verdict = Verdict::kWarning;
    finding.meaning = "DDS has slots for nine programs only, robots and applications together";
  } else {
    finding.verdict = Verdict::kProblem;
    finding.meaning = "robots and applications on other machines can't find each other";
  }
  return finding;
}

Finding checkInterface(const NetworkInterface& interface) {
  Finding finding{"network.interface",  Verdict::kOk, "interface " + interface.name,
                  flagsText(interface), {},           {}};
  if (interface.usable() && interface.carrier) return finding;
  finding.verdict = interface.usable() ? Verdict::kWarning : Verdict::kProblem;
  finding.meaning = "DDS can't use " + interface.name;
  if (!interface.up) {
    finding.cure = "sudo ip link set " + interface.name + " up";
  } else if (interface.address == 0) {
    finding.cure = "sudo dhclient " + interface.name +
                   "    # or give it an address: sudo ip address add 192.168.1.5/24 dev " +
                   interface.name;
  } else {
    finding.seen += ", no link";
    finding.meaning = "nobody is reached through it";
    finding.cure = "connect the cable or the wireless network of " + interface.name;
  }
  return finding;
}

Finding missingInterface(const std::vector<NetworkInterface>& all, const Machine& machine) {
  Finding finding{"network.interface", Verdict::kProblem, "interface", {}, {}, {}};
  finding.meaning = "the DDS layer can't start, so no robot can be found";
  if (machine.interface.empty()) {
    finding.seen = "none can be used: " + namesOf(all);
    const auto loopback = std::find_if(
        all.begin(), all.end(), [](const NetworkInterface& entry) { return entry.loopback; });
    finding.cure = loopback != all.end()
                       ? "sudo ip link set " + loopback->name +
                             " up    # or connect this machine to the robot's network"
                       : "connect this machine to the robot's network";
    return finding;
  }
  finding.subject += ' ' + printable(machine.interface);
  finding.seen = "there is none of that name; there are: " + namesOf(all);
  const auto better = std::find_if(all.begin(), all.end(),
                                   [](const NetworkInterface& entry) { return entry.usable(); });
  finding.cure = machine.board         ? "name an interface of this board in /etc/dds/*.xml"
                 : better != all.end() ? "robotctl doctor --interface " + better->name
                                       : "ip link    # then name one of these";
  return finding;
}

}  // namespace

std::string NetworkInterface::addressText() const {
  char text[INET_ADDRSTRLEN] = "";
  in_addr value{};
  value.s_addr = address;
  ::inet_ntop(AF_INET, &value, text, sizeof text);
  return text;
}

std::vector<NetworkInterface> readInterfaces() {
  std::vector<NetworkInterface> result;
  ifaddrs* entries = nullptr;
  if (::getifaddrs(&entries) != 0) return result;
  for (const ifaddrs* entry = entries; entry != nullptr; entry = entry->ifa_next) {
    auto known = std::find_if(result.begin(), result.end(), [&](const NetworkInterface& interface) {
      return interface.name == entry->ifa_name;
    });
    if (known == result.end()) {
      NetworkInterface interface;
      interface.name = entry->ifa_name;
      interface.index = ::if_nametoindex(entry->ifa_name);
      known = result.insert(result.end(), std::move(interface));
    }
    take(*known, *entry);
  }
  ::freeifaddrs(entries);
  return result;
}

std::vector<NetworkInterface> usableInterfaces(const std::vector<NetworkInterface>& all,
                                               const Machine& machine) {
  std::vector<NetworkInterface> result;
  std::copy_if(all.begin(), all.end(), std::back_inserter(result),
               [&](const NetworkInterface& interface) {
                 return interface.usable() &&
                        (machine.interface.empty() || machine.interface == interface.name);
               });
  return result;
}

UdpSocket::UdpSocket(std::uint32_t address)
    : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  const sockaddr_in own = socketAddress(address, 0);
  if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
    ::close(std::exchange(fd_, -1));
  }
}

UdpSocket::~UdpSocket() {
  if (fd_ >= 0) ::close(fd_);
}

UdpSocket::UdpSocket(UdpSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

std::uint16_t UdpSocket::port() const {
  sockaddr_in own{};
  socklen_t size = sizeof own;
  const bool known = ::getsockname(fd_, reinterpret_cast<sockaddr*>(&own), &size) == 0;
  return known ? ntohs(own.sin_port) : std::uint16_t{0};
}

bool UdpSocket::sendThrough(const NetworkInterface& interface) const {
  ip_mreqn request{};
  request.imr_address.s_addr = interface.address;
  request.imr_ifindex = static_cast<int>(interface.index);
  const int on = 1;
  return ::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request) == 0 &&
         ::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_LOOP, &on, sizeof on) == 0;
}

bool UdpSocket::join(const char* group, const NetworkInterface& interface) const {
  ip_mreqn request{};
  request.imr_multiaddr.s_addr = ::inet_addr(group);
  request.imr_ifindex = static_cast<int>(interface.index);
  return ::setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

bool UdpSocket::send(const void* data, std::size_t size, std::uint32_t address,
                     std::uint16_t port) const {
  const sockaddr_in target = socketAddress(address, port);
  return ::sendto(fd_, data, size, 0, reinterpret_cast<const sockaddr*>(&target), sizeof target) ==
         static_cast<ssize_t>(size);
}

Findings checkNetwork(const std::vector<NetworkInterface>& all, const Machine& machine) {
  Findings findings;
  const std::vector<NetworkInterface> usable = usableInterfaces(all, machine);
  if (machine.interface.empty() && usable.empty()) return {missingInterface(all, machine)};
  if (!machine.interface.empty()) {
    const auto named = std::find_if(all.begin(), all.end(), [&](const NetworkInterface& interface) {
      return interface.name == machine.interface;
    });
    if (named == all.end()) return {missingInterface(all, machine)};
    if (!named->usable()) return {checkInterface(*named)};
  }
  for (const NetworkInterface& interface : usable) {
    findings.push_back(checkInterface(interface));
    findings.push_back(checkMulticast(interface));
  }
  if (machine.interface.empty()) {
    // DDS prefers an interface with multicast that isn't the loopback one: that one lacking
    // multicast is no obstacle while there is another, and neither are further ones.
    const bool works = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
      return finding.check == "network.multicast" && finding.verdict == Verdict::kOk;
    });
    for (Finding& finding : findings) {
      if (works && finding.verdict == Verdict::kProblem) finding.verdict = Verdict::kWarning;
    }
  }
  const std::string route = routeOfMulticast();
  findings.push_back({"network.route",
                      Verdict::kOk,
                      "multicast route",
                      route.empty() ? "none; DDS names its interface itself"
                                    : "through " + route + " unless an interface is named",
                      {},
                      {}});
  return findings;
}

}  // namespace robotctl::doctor
