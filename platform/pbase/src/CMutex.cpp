#include "pbase/CMutex.h"

#include "MonotonicCondition.h"
#include "VirtualTime.h"
#include "pbase/CTime.h"

namespace Pexal::PBase {

namespace {

std::uint64_t toSystemTime(std::uint64_t deadlineUs) {
  if (deadlineUs >= kNeverUs) return deadlineUs;
  return deadlineUs - static_cast<std::uint64_t>(VirtualTime::offset());
}

}  // namespace

struct CCondition::Impl {
  MonotonicCondition native;
};

CCondition::CCondition() : impl_(std::make_unique<Impl>()) {}
CCondition::~CCondition() = default;

bool CCondition::waitUntil(std::unique_lock<CMutex>& lock, std::uint64_t deadlineUs,
                           const std::function<bool()>& ready) {
  Wait wait;
  bool isReady = ready();
  while (!isReady && CTime::getCurrentMicroSecond() < deadlineUs) {
    if (!VirtualTime::active() || !wait.block(this, deadlineUs, lock)) {
      impl_->native.waitUntil(lock.mutex()->native_, toSystemTime(deadlineUs));
    }
    isReady = ready();
  }
  return isReady;
}

void CCondition::notifyOne() noexcept {
  if (VirtualTime::active()) VirtualTime::instance().notify(this, false);
  impl_->native.notifyOne();
}

void CCondition::notifyAll() noexcept {
  if (VirtualTime::active()) VirtualTime::instance().notify(this, true);
  impl_->native.notifyAll();
}

}  // namespace Pexal::PBase
