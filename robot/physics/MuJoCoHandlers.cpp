#include "physics/MuJoCoHandlers.h"

#include <mujoco/mujoco.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CTime;

constexpr std::uint64_t kApartMs = 1000;  // of two warnings

void onWarning(const char* text) {
  static std::atomic<std::uint64_t> nextMs{0};
  const std::uint64_t nowMs = CTime::getCurrentMilliSecond();
  std::uint64_t dueMs = nextMs.load(std::memory_order_relaxed);
  if (nowMs < dueMs || !nextMs.compare_exchange_strong(dueMs, nowMs + kApartMs)) return;
  Pexal::ILogger::instance()->log(3, "VirtualRobot", "physics: %s\n", text);
}

[[noreturn]] void onError(const char* text) {
  // Between here and whoever could catch are frames of C; and MuJoCo takes it that this ends it.
  std::fprintf(stderr, "virtual-robot: physics: %s\n", text);
  std::_Exit(1);
}

}  // namespace

void installMuJoCoHandlers() {
  static const bool installed = [] {
    mju_user_warning = onWarning;
    mju_user_error = onError;
    return true;
  }();
  static_cast<void>(installed);
}

}  // namespace orvane::robot
