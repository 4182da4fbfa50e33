#include "session/RefusalLog.h"

#include <utility>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace orvane::robot {

void RefusalLog::note(RecordFate fate, std::uint64_t number) {
  if (fate == RecordFate::kTaken) return;
  const std::uint64_t nowMs = Pexal::PBase::CTime::getCurrentMilliSecond();
  if (nowMs < reportedMs_ + kEveryMs) {
    ++unsaid_;
    return;
  }
  reportedMs_ = nowMs;
  Pexal::ILogger::instance()->log(3, "VirtualRobot", "refused %s %llu: %s (%llu more before)\n",
                                  source_, static_cast<unsigned long long>(number), textOf(fate),
                                  static_cast<unsigned long long>(std::exchange(unsaid_, 0)));
}

}  // namespace orvane::robot
