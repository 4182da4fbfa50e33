#include "service/ServiceGate.h"

#include <algorithm>
#include <mutex>

#include "pbase/CTime.h"
#include "service/CallbackScope.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr std::uint64_t kSliceMs = 60'000;  // an unlimited wait looks again this often

}  // namespace

ServiceGate::Entry ServiceGate::enter(std::uint64_t limitMs) {
  const auto self = std::this_thread::get_id();
  const bool inCallback = CallbackScope::active();
  std::unique_lock lock(mutex_);
  if (held_ && holder_ == self) return Entry(nullptr);

  const auto decided = [&] { return !held_ || (draining_ && inCallback); };
  while (!decided() && limitMs > 0) {
    const std::uint64_t slice = std::min(limitMs, kSliceMs);
    const std::uint64_t deadline = Pexal::PBase::CTime::getCurrentMicroSecond() + slice * 1000;
    changed_.waitUntil(lock, deadline, decided);
    if (limitMs != kNoLimit) limitMs -= slice;
  }
  if (held_) return Entry(nullptr);
  held_ = true;
  holder_ = self;
  return Entry(this);
}

void ServiceGate::leave() noexcept {
  const std::lock_guard lock(mutex_);
  held_ = false;
  holder_ = {};
  changed_.notifyAll();
}

void ServiceGate::setDraining(bool draining) {
  const std::lock_guard lock(mutex_);
  draining_ = draining;
  changed_.notifyAll();
}

}  // namespace orvane::RobotSdk::service
