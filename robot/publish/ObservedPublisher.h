#pragma once

#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "body/Body.h"
#include "faults/Voice.h"
#include "msg/MotionTypes.h"

namespace orvane::robot {

/// QoS of a robot's observed writers: best effort, newest sample only, the device id in the user
/// data.
[[nodiscard]] dds::pub::qos::DataWriterQos observedWriterQos(const std::string& deviceId);

/// Writes "motion/observed" and "sensor/observed", best effort, in the default partition, so that
/// any DDS tool can read them. The writers announce the device in their user data: "deviceNo=" and
/// the id.
///
/// Threading contract: publish from one thread at a time; made and destroyed when none publishes.
class ObservedPublisher {
 public:
  /// Writes through `participant`, as `voice` tells. Throws dds::core::Exception.
  ObservedPublisher(const dds::domain::DomainParticipant& participant, const std::string& deviceId,
                    std::shared_ptr<Voice> voice);

  /// Writes the motion sample and, with `withSensors`, the sensor sample. Neither blocks nor
  /// throws; a refused write is counted, reported at most once a second, and otherwise lost.
  void publish(const BodyState& body, bool withSensors) noexcept;

 private:
  void reportFailure(const char* text) noexcept;

  const std::shared_ptr<Voice> voice_;
  dds::pub::Publisher publisher_;
  dds::topic::Topic<orvane::msg::dds_::MotionObserved_> motionTopic_;
  dds::topic::Topic<orvane::msg::dds_::SensorObserved_> sensorTopic_;
  dds::pub::DataWriter<orvane::msg::dds_::MotionObserved_> motionWriter_;
  dds::pub::DataWriter<orvane::msg::dds_::SensorObserved_> sensorWriter_;
  orvane::msg::dds_::MotionObserved_ motionSample_{};
  orvane::msg::dds_::SensorObserved_ sensorSample_{};
  std::uint64_t failures_ = 0;
  std::uint64_t reportedMs_ = 0;
};

}  // namespace orvane::robot
