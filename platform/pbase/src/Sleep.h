#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

#include "VirtualTime.h"
#include "pbase/CMutex.h"
#include "pbase/CTime.h"

namespace Pexal::PBase {

/// Sleeps `us` microseconds of the platform's clock, or until `wakeUp()` holds (`mutex` guards it,
/// `changed` tells of it). In simulated time even a sleep of no length lets every other thread run
/// until it blocks.
inline void sleepUnless(CMutex& mutex, CCondition& changed, std::uint64_t us,
                        const std::function<bool()>& wakeUp) {
  std::unique_lock lock(mutex);
  const std::uint64_t deadlineUs = saturatingAdd(CTime::getCurrentMicroSecond(), us);
  if (us == 0 && VirtualTime::active() && !wakeUp()) Wait().block(&changed, deadlineUs, lock);
  changed.waitUntil(lock, deadlineUs, wakeUp);
}

}  // namespace Pexal::PBase
