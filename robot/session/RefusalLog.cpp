#include "session/RefusalLog.h"

#include <string>
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
  const std::uint64_t unsaid = std::exchange(unsaid_, 0);
  const std::string more = unsaid == 0 ? "" : " (" + std::to_string(unsaid) + " more before)";
  Pexal::ILogger::instance()->log(3, "VirtualRobot", "refused %s %llu%s: %s%s\n", source_,
                                  static_cast<unsigned long long>(number), unit_, textOf(fate),
                                  more.c_str());
}

}  // namespace orvane::robot
