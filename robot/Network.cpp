#include "Network.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string_view>

namespace orvane::robot {
namespace {

constexpr std::size_t kLongestDeviceId = 64;
constexpr std::uint32_t kHighestDomain = 230;
constexpr int kSlots = 9;  // participant indexes 0 to 8

bool isDeviceIdCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
         std::string_view("-_.:").find(c) != std::string_view::npos;
}

bool isInterfaceCharacter(char c) {
  return std::isgraph(static_cast<unsigned char>(c)) != 0 &&
         std::string_view("<>&\"'/").find(c) == std::string_view::npos;
}

/// A socket that closes itself.
class Socket {
 public:
  Socket() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  [[nodiscard]] int fd() const { return fd_; }

 private:
  int fd_;
};

short flagsOf(const std::string& interface) {
  const Socket socket;
  ifreq request{};
  std::strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
  return ::ioctl(socket.fd(), SIOCGIFFLAGS, &request) == 0 ? request.ifr_flags : short{0};
}

/// The port on which slot `slot` of a domain hears of other participants (DDSI's well-known ports).
std::uint16_t discoveryPort(std::uint32_t domain, int slot) {
  return static_cast<std::uint16_t>(7400 + 250 * domain + 10 +
                                    2 * static_cast<std::uint32_t>(slot));
}

bool isTaken(std::uint16_t port) {
  const Socket socket;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(port);
  return ::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
         errno == EADDRINUSE;
}

bool allSlotsTaken(std::uint32_t domain) {
  for (int slot = 0; slot < kSlots; ++slot) {
    if (!isTaken(discoveryPort(domain, slot))) return false;
  }
  return true;
}

/// The DDS settings, as XML text.
std::string ddsProfile(const std::string& interface, std::uint32_t domain, double lossPercent) {
  const std::string perMille = std::to_string(std::lround(lossPercent * 10));
  return "<CycloneDDS><Domain Id=\"" + std::to_string(domain) +
         "\"><General><Interfaces><NetworkInterface name=\"" + interface +
         "\" priority=\"3\" multicast=\"default\" presence_required=\"true\"/></Interfaces>"
         "<AllowMulticast>true</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize></General>"
         // What a stopped but still matched client doesn't acknowledge holds up everybody's events
         // and answers once it passes the upper mark, whose default is a few hundred events.
         "<Internal><Watermarks><WhcHigh>4MB</WhcHigh><WhcHighInit>4MB</WhcHighInit>"
         "<WhcAdaptive>false</WhcAdaptive></Watermarks><Test><XmitLossiness>" +
         perMille +
         "</XmitLossiness></Test></Internal>"
         "<Tracing><Verbosity>none</Verbosity></Tracing></Domain></CycloneDDS>";
}

}  // namespace

std::optional<std::string> deviceIdError(const std::string& deviceId) {
  if (!deviceId.empty() && deviceId.size() <= kLongestDeviceId &&
      std::all_of(deviceId.begin(), deviceId.end(), isDeviceIdCharacter)) {
    return std::nullopt;
  }
  return "the device id must be 1 to 64 letters, digits, '-', '_', '.' or ':'";
}

std::optional<std::string> settingsError(const std::string& deviceId, const std::string& interface,
                                         std::uint32_t domain) {
  if (auto wrong = deviceIdError(deviceId)) return wrong;
  if (domain > kHighestDomain) return "the domain must be 0 to 230";
  if (interface.empty() || interface.size() >= IFNAMSIZ ||
      !std::all_of(interface.begin(), interface.end(), isInterfaceCharacter) ||
      ::if_nametoindex(interface.c_str()) == 0) {
    return "there is no network interface \"" + interface.substr(0, IFNAMSIZ) + "\"";
  }
  return std::nullopt;
}

std::optional<std::string> lossError(double lossPercent) {
  if (lossPercent == 0 || (lossPercent >= 0.1 && lossPercent <= 100)) return std::nullopt;
  return "the loss must be 0 or 0.1 to 100 percent";
}

Json::Value ddsDocument(const std::string& interface, std::uint32_t domain, double lossPercent) {
  Json::Value document;
  Json::Value& entry = document["domain"].append(Json::Value(Json::objectValue));
  entry["name"] = kHostDomain;
  entry["domain"] = domain;
  entry["url"] = ddsProfile(interface, domain, lossPercent);
  return document;
}

std::string joinFailure(const std::string& interface, std::uint32_t domain) {
  const std::string where = interface + ", domain " + std::to_string(domain);
  const short flags = flagsOf(interface);
  if ((flags & IFF_UP) == 0) return "interface " + interface + " is down";
  if ((flags & IFF_MULTICAST) == 0 && allSlotsTaken(domain)) {
    return "no participant slot left on " + where + ": without multicast there are " +
           std::to_string(kSlots) +
           ", one per process. End one of them, or switch multicast on (ip link set " + interface +
           " multicast on)";
  }
  return "can't join DDS on " + where + " (the log says why)";
}

}  // namespace orvane::robot
