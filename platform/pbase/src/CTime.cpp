#include "pbase/CTime.h"

#include "VirtualTime.h"

namespace Pexal::PBase {

std::uint64_t CTime::getCurrentMilliSecond() noexcept {
  return getCurrentMicroSecond() / 1000;
}

std::uint64_t CTime::getCurrentMicroSecond() noexcept {
  if (const std::uint64_t simulated = VirtualTime::now(); simulated != 0) return simulated;
  return systemMicroseconds() + static_cast<std::uint64_t>(VirtualTime::offset());
}

}  // namespace Pexal::PBase
