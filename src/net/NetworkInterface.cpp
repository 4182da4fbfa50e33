#include "net/NetworkInterface.h"

#include <net/if.h>

#include <cerrno>

#include "net/AddressText.h"

namespace NFramework {

Result<NetworkInterface> NetworkInterface::byName(std::string_view name) {
  constexpr const char* kAttempted = "find a network interface by its name";
  const Terminated<IF_NAMESIZE> text(name);
  if (!text.fits() || name.empty()) return Error{ENODEV, kAttempted};
  const unsigned index = ::if_nametoindex(text.get());
  if (index == 0) return systemError(kAttempted);
  return NetworkInterface(index);
}

Result<std::string> NetworkInterface::name() const {
  constexpr const char* kAttempted = "find a network interface by its index";
  char text[IF_NAMESIZE] = "";
  if (::if_indextoname(index_, text) != nullptr) return std::string(text);
  if (errno == ENXIO) return Error{ENODEV, kAttempted};
  return systemError(kAttempted);
}

}  // namespace NFramework
