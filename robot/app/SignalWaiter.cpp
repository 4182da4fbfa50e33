#include "app/SignalWaiter.h"

#include <ctime>

namespace orvane::robot {

SignalWaiter::SignalWaiter() {
  sigemptyset(&signals_);
  sigaddset(&signals_, SIGINT);
  sigaddset(&signals_, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  // A closed pipe behind the status lines is no reason to fall over.
  std::signal(SIGPIPE, SIG_IGN);
}

bool SignalWaiter::wait(std::uint32_t ms) const {
  const timespec timeout{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1'000'000};
  return sigtimedwait(&signals_, nullptr, &timeout) > 0;
}

}  // namespace orvane::robot
