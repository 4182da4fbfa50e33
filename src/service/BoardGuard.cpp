#include "service/BoardGuard.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "log/Log.h"
#include "pbase/CThread.h"
#include "pbase/System.h"
#include "service/SafeFile.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr char kUnit[] = "BoardGuard";
constexpr char kRoudiMarker[] = "/tmp/iox-unique-roudi_ready.lock";
constexpr char kLockFile[] = "/tmp/orvane_motion_sdk.lock";
constexpr std::uint32_t kPollMs = 100;

std::uint32_t toMilliseconds(std::uint32_t seconds) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(seconds * std::uint64_t{1000}, kMost));
}

}  // namespace

bool waitForRoudi(std::uint32_t waitSeconds) {
  const std::uint32_t timeoutMs = toMilliseconds(waitSeconds);
  // The polls are counted, not timed: a board that is still booting may step its clocks.
  for (std::uint64_t elapsedMs = 0; elapsedMs < timeoutMs; elapsedMs += kPollMs) {
    if (Pexal::PBase::File::exist(kRoudiMarker)) return true;
    Pexal::PBase::CThread::sleep(kPollMs);
  }
  MOTION_LOG(kUnit, level::kError, "motion sdk: RouDi not ready after %u ms, env not prepared",
             timeoutMs);
  return false;
}

int takeBoardLock() {
  const int descriptor = openForWriting(kLockFile);
  if (descriptor < 0) {
    MOTION_LOG(kUnit, level::kError, "motion sdk open lockfile(%s) failed: %s", kLockFile,
               errorText(-descriptor).c_str());
    return -1;
  }
  if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) return descriptor;
  MOTION_LOG(kUnit, level::kError,
             "motion sdk already running on this board (lockfile=%s, errno=%d)", kLockFile, errno);
  ::close(descriptor);
  return -1;
}

}  // namespace orvane::RobotSdk::service
