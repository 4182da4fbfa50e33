#include "pbase/CSemaphore.h"

#include "VirtualTime.h"
#include "pbase/CTime.h"

namespace Pexal::PBase {

CSemaphore::CSemaphore(std::uint32_t count) : count_(count) {}

void CSemaphore::post() {
  // Notified under the lock: a waiter may destroy the semaphore as soon as its wait returns.
  const std::lock_guard guard(mutex_);
  ++count_;
  posted_.notifyOne();
}

bool CSemaphore::wait(std::uint32_t timeoutMs) {
  std::unique_lock lock(mutex_);
  const std::uint64_t deadlineUs =
      saturatingAdd(CTime::getCurrentMicroSecond(), timeoutMs * std::uint64_t{1000});
  if (!posted_.waitUntil(lock, deadlineUs, [this] { return count_ > 0; })) return false;
  --count_;
  return true;
}

void CSemaphore::clear() {
  const std::lock_guard guard(mutex_);
  count_ = 0;
}

}  // namespace Pexal::PBase
