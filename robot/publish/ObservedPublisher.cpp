#include "publish/ObservedPublisher.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "faults/Nonsense.h"
#include "pbase/CTime.h"
#include "publish/Samples.h"

namespace orvane::robot {

namespace policy = dds::core::policy;
using Pexal::PBase::CTime;

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
    : Publisher(std::move(voice), false),
      publisher_(participant),
      motionTopic_(participant, "motion/observed"),
      sensorTopic_(participant, "sensor/observed"),
      motionWriter_(publisher_, motionTopic_, observedWriterQos(deviceId)),
      sensorWriter_(publisher_, sensorTopic_, observedWriterQos(deviceId)) {}

void ObservedPublisher::writeMotion(const BodyState& body, bool spoilt) {
  fill(motionSample_, body, CTime::getCurrentMicroSecond());
  if (spoilt) spoil(motionSample_, nextTurn());
  motionWriter_.write(motionSample_);
}

void ObservedPublisher::writeSensors(const BodyState& body, bool spoilt) {
  fill(sensorSample_, body, CTime::getCurrentMicroSecond());
  if (spoilt) spoil(sensorSample_, nextTurn());
  sensorWriter_.write(sensorSample_);
}

}  // namespace orvane::robot
