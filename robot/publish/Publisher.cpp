#include "publish/Publisher.h"

#include <exception>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

constexpr std::uint64_t kReportEveryMs = 1000;

}  // namespace

void Publisher::publish(const BodyState& body, bool withSensors) noexcept {
  if (voice_->isSilent()) return;
  const bool spoilt = voice_->talksNonsense();
  tryWrite(&Publisher::writeMotion, body, spoilt);
  if (withSensors) tryWrite(&Publisher::writeSensors, body, spoilt);
}

void Publisher::tryWrite(Write write, const BodyState& body, bool spoilt) noexcept {
  try {
    (this->*write)(body, spoilt);
  } catch (const std::exception& failure) {
    reportFailure(failure.what());
  }
}

void Publisher::reportFailure(const char* text) noexcept {
  ++failures_;
  const std::uint64_t nowMs = Pexal::PBase::CTime::getCurrentMilliSecond();
  if (nowMs < reportedMs_ + kReportEveryMs) return;
  reportedMs_ = nowMs;
  Pexal::ILogger::instance()->log(3, "VirtualRobot", "%llu observed samples not written: %s\n",
                                  static_cast<unsigned long long>(failures_), text);
}

}  // namespace orvane::robot
