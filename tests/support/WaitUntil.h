#pragma once

#include <cstdint>

#include "pbase/CThread.h"
#include "pbase/CTime.h"

namespace orvane_test {

/// Looks at the condition every few milliseconds until it holds; false when it doesn't within the
/// limit. Waits on the platform's clock, so under a VirtualClock it takes simulated time.
template <class Condition>
[[nodiscard]] bool waitUntil(Condition&& holds, std::uint32_t limitMs = 20'000) {
  const auto deadline = Pexal::PBase::CTime::getCurrentMilliSecond() + limitMs;
  while (!holds()) {
    if (Pexal::PBase::CTime::getCurrentMilliSecond() >= deadline) return false;
    Pexal::PBase::CThread::sleep(2);
  }
  return true;
}

}  // namespace orvane_test
