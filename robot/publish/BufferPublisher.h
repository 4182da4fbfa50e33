#pragma once

#include <memory>

#include "orvane/RobotSdk/Records.h"
#include "pbase/CShmTripleBuffer.h"
#include "publish/Publisher.h"

namespace orvane::robot {

/// For applications on the robot board: writes the records of the shared-memory buffers
/// "motion_observed" and "motion_sensor_observed". They stay when the robot ends, and their numbers
/// go on with the next one.
class BufferPublisher final : public Publisher {
 public:
  static constexpr const char* kMotionBuffer = "motion_observed";
  static constexpr const char* kSensorBuffer = "motion_sensor_observed";

  /// Becomes the writer of both buffers. Throws std::runtime_error that says which one it can't
  /// have.
  explicit BufferPublisher(std::shared_ptr<Voice> voice);

 private:
  void writeMotion(const BodyState& body, bool spoilt) override;
  void writeSensors(const BodyState& body, bool spoilt) override;

  Pexal::Memory::CShmTripleBuffer motionBuffer_;
  Pexal::Memory::CShmTripleBuffer sensorBuffer_;
  RobotSdk::ObservedMotionRecord motionRecord_{};
  RobotSdk::ObservedSensorRecord sensorRecord_{};
};

}  // namespace orvane::robot
