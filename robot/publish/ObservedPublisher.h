#pragma once

#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "msg/MotionTypes.h"
#include "publish/Publisher.h"

namespace orvane::robot {

/// QoS of a robot's observed writers: best effort, newest sample only, the device id in the user
/// data.
[[nodiscard]] dds::pub::qos::DataWriterQos observedWriterQos(const std::string& deviceId);

/// For external hosts: writes the topics "motion/observed" and "sensor/observed", best effort, in
/// the default partition, so that any DDS tool can read them. The writers announce the device in
/// their user data: "deviceNo=" and the id.
class ObservedPublisher final : public Publisher {
 public:
  /// Writes through `participant`, as `voice` tells. Throws dds::core::Exception.
  ObservedPublisher(const dds::domain::DomainParticipant& participant, const std::string& deviceId,
                    std::shared_ptr<Voice> voice);

 private:
  void writeMotion(const BodyState& body, bool spoilt) override;
  void writeSensors(const BodyState& body, bool spoilt) override;

  dds::pub::Publisher publisher_;
  dds::topic::Topic<orvane::msg::dds_::MotionObserved_> motionTopic_;
  dds::topic::Topic<orvane::msg::dds_::SensorObserved_> sensorTopic_;
  dds::pub::DataWriter<orvane::msg::dds_::MotionObserved_> motionWriter_;
  dds::pub::DataWriter<orvane::msg::dds_::SensorObserved_> sensorWriter_;
  orvane::msg::dds_::MotionObserved_ motionSample_{};
  orvane::msg::dds_::SensorObserved_ sensorSample_{};
};

}  // namespace orvane::robot
