#pragma once

#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "msg/MotionTypes.h"
#include "publish/Publisher.h"

namespace orvane::robot {

/// QoS of a robot's writers: newest sample only, the device id in the user data; best effort unless
/// `reliable`. A reader that stands still holds up neither kind.
[[nodiscard]] dds::pub::qos::DataWriterQos observedWriterQos(const std::string& deviceId,
                                                             bool reliable = false);

/// For external hosts: writes the topics "motion/observed" and "sensor/observed" in the default
/// partition, so that any DDS tool can read them, and the motion once more where low-level clients
/// look for it elsewhere. The writers announce the device in their user data: "deviceNo=" and the
/// id. Best effort but for what low-level clients read, which is as they need it.
class ObservedPublisher final : public Publisher {
 public:
  static constexpr const char* kMotionTopic = "motion/observed";
  static constexpr const char* kSensorTopic = "sensor/observed";

  /// Where low-level clients look for the motion.
  struct ForClients {
    dds::domain::DomainParticipant participant = dds::core::null;  ///< null: there are none
    std::string topic;
    bool reliable = true;
  };

  /// Writes through `participant`, as `voice` tells. Throws dds::core::Exception.
  ObservedPublisher(const dds::domain::DomainParticipant& participant, const std::string& deviceId,
                    std::shared_ptr<Voice> voice, const ForClients& clients);

 private:
  void writeMotion(const BodyState& body, bool spoilt) override;
  void writeSensors(const BodyState& body, bool spoilt) override;

  dds::pub::Publisher publisher_;
  dds::topic::Topic<orvane::msg::dds_::MotionObserved_> motionTopic_;
  dds::topic::Topic<orvane::msg::dds_::SensorObserved_> sensorTopic_;
  dds::pub::DataWriter<orvane::msg::dds_::MotionObserved_> motionWriter_;
  dds::pub::DataWriter<orvane::msg::dds_::MotionObserved_> clientsWriter_;  // null: the same one
  dds::pub::DataWriter<orvane::msg::dds_::SensorObserved_> sensorWriter_;
  orvane::msg::dds_::MotionObserved_ motionSample_{};
  orvane::msg::dds_::SensorObserved_ sensorSample_{};
};

}  // namespace orvane::robot
