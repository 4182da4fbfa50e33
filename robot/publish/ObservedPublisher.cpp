#include "publish/ObservedPublisher.h"

#include <cstdint>
#include <exception>
#include <utility>
#include <vector>

#include "faults/Nonsense.h"
#include "pbase/CTime.h"
#include "publish/Samples.h"

namespace orvane::robot {

namespace policy = dds::core::policy;
using Pexal::PBase::CTime;

dds::pub::qos::DataWriterQos observedWriterQos(const std::string& deviceId, bool reliable) {
  const std::string announced = "deviceNo=" + deviceId;
  dds::pub::qos::DataWriterQos qos;
  qos << (reliable ? policy::Reliability::Reliable(dds::core::Duration::zero())
                   : policy::Reliability::BestEffort())
      << policy::History::KeepLast(1) << policy::Durability::Volatile()
      << policy::UserData(std::vector<std::uint8_t>(announced.begin(), announced.end()));
  return qos;
}

ObservedPublisher::ObservedPublisher(const dds::domain::DomainParticipant& participant,
                                     const std::string& deviceId, std::shared_ptr<Voice> voice,
                                     const ForClients& clients)
    : Publisher(std::move(voice), false),
      publisher_(participant),
      motionTopic_(participant, kMotionTopic),
      sensorTopic_(participant, kSensorTopic),
      sensorWriter_(publisher_, sensorTopic_, observedWriterQos(deviceId)) {
  // One writer where both kinds of readers look in the same place, or everybody gets all twice.
  const bool wanted = !clients.participant.is_nil();
  const bool shared = wanted && clients.participant == participant && clients.topic == kMotionTopic;
  motionWriter_ = {publisher_, motionTopic_,
                   observedWriterQos(deviceId, shared && clients.reliable)};
  if (!wanted || shared) return;
  const dds::topic::Topic<orvane::msg::dds_::MotionObserved_> topic(clients.participant,
                                                                    clients.topic);
  clientsWriter_ = {dds::pub::Publisher(clients.participant), topic,
                    observedWriterQos(deviceId, clients.reliable)};
}

void ObservedPublisher::writeMotion(const BodyState& body, bool spoilt) {
  fill(motionSample_, body, CTime::getCurrentMicroSecond());
  if (spoilt) spoil(motionSample_, nextTurn());
  std::exception_ptr failure;
  for (auto* const writer : {&motionWriter_, &clientsWriter_}) {
    if (writer->is_nil()) continue;
    try {
      writer->write(motionSample_);
    } catch (const std::exception&) {  // the others get the sample all the same
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

void ObservedPublisher::writeSensors(const BodyState& body, bool spoilt) {
  fill(sensorSample_, body, CTime::getCurrentMicroSecond());
  if (spoilt) spoil(sensorSample_, nextTurn());
  sensorWriter_.write(sensorSample_);
}

}  // namespace orvane::robot
