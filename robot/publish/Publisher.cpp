#include "publish/Publisher.h"

#include <algorithm>
#include <exception>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

constexpr std::uint64_t kReportEveryMs = 1000;

}  // namespace

bool Publisher::Cadence::due(std::uint32_t stepUs, std::uint32_t periodUs) noexcept {
  // What is left of a longer period than the present one doesn't count.
  leftUs = std::min<std::int64_t>(leftUs - stepUs, periodUs);
  if (leftUs > 0) return false;
  leftUs = std::max<std::int64_t>(leftUs + periodUs, 0);
  return true;
}

void Publisher::publish(const BodyState& body, std::uint32_t stepUs,
                        std::uint32_t sessionHz) noexcept {
  const bool agreed = forSessions_ && sessionHz > 0;
  const bool withMotion = motion_.due(stepUs, agreed ? 1'000'000 / sessionHz : kMotionUs);
  const bool withSensors = sensors_.due(stepUs, kSensorUs);
  if (voice_->isSilent()) return;
  const bool spoilt = voice_->talksNonsense();
  if (withMotion) tryWrite(&Publisher::writeMotion, body, spoilt);
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
