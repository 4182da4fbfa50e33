#include "pbase/VirtualClock.h"

#include "Sleep.h"
#include "VirtualTime.h"
#include "pbase/CThread.h"

namespace Pexal::PBase {

VirtualClock::VirtualClock(std::uint64_t startUs, std::uint32_t watchdogMs) {
  VirtualTime::instance().install(startUs, watchdogMs);
}

VirtualClock::~VirtualClock() {
  VirtualTime::instance().remove();
}

void VirtualClock::advance(std::uint32_t ms) {
  CThread::sleep(ms);
}

void VirtualClock::advanceMicroseconds(std::uint64_t us) {
  CMutex mutex;
  CCondition never;
  sleepUnless(mutex, never, us, [] { return false; });
}

ExternalWait::ExternalWait() noexcept {
  if (VirtualTime::active()) VirtualTime::instance().beginOutside();
}

ExternalWait::~ExternalWait() {
  if (VirtualTime::active()) VirtualTime::instance().endOutside();
}

}  // namespace Pexal::PBase
