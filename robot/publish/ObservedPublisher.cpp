#include "publish/ObservedPublisher.h"

#include <utility>
#include <vector>

#include "faults/Nonsense.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "publish/Samples.h"

namespace orvane::robot {
namespace {

namespace policy = dds::core::policy;
using Pexal::PBase::CTime;

constexpr std::uint32_t kOdometryEpoch = 1;  // the origin never moves while the process lives
constexpr std::uint64_t kReportEveryMs = 1000;

}  // namespace

dds::pub::qos::DataWriterQos observedWriterQos(const std::string& deviceId) {
  const std::string announced = "deviceNo=" + deviceId;
  dds::pub::qos::DataWriterQos qos;
  qos << policy::Reliability::BestEffort() << policy::History::KeepLast(1)
      << policy::Durability::Volatile()
      << policy::UserData(std::vector<std::uint8_t>(announced.begin(), announced.end()));
  return qos;
}

ObservedPublisher::ObservedPublisher(const dds::domain::DomainParticipant& participant,
                                     const std::string& deviceId, std::shared_ptr<Voice> voice)
    : voice_(std::move(voice)),
      publisher_(participant),
      motionTopic_(participant, "motion/observed"),
      sensorTopic_(participant, "sensor/observed"),
      motionWriter_(publisher_, motionTopic_, observedWriterQos(deviceId)),
      sensorWriter_(publisher_, sensorTopic_, observedWriterQos(deviceId)) {}

void ObservedPublisher::publish(const BodyState& body, bool withSensors) noexcept {
  if (voice_->isSilent()) return;
  try {
    const std::uint64_t nowUs = CTime::getCurrentMicroSecond();
    const bool nonsense = voice_->talksNonsense();
    fill(motionSample_, body, nowUs);
    if (nonsense) spoil(motionSample_, voice_->nextTurn());
    motionWriter_.write(motionSample_);
    if (!withSensors) return;
    fill(sensorSample_, body, nowUs, kOdometryEpoch);
    if (nonsense) spoil(sensorSample_, voice_->nextTurn());
    sensorWriter_.write(sensorSample_);
  } catch (const dds::core::Exception& failure) {
    reportFailure(failure.what());
  }
}

void ObservedPublisher::reportFailure(const char* text) noexcept {
  ++failures_;
  const std::uint64_t nowMs = CTime::getCurrentMilliSecond();
  if (nowMs < reportedMs_ + kReportEveryMs) return;
  reportedMs_ = nowMs;
  Pexal::ILogger::instance()->log(3, "VirtualRobot", "%llu observed samples not written: %s\n",
                                  static_cast<unsigned long long>(failures_), text);
}

}  // namespace orvane::robot
