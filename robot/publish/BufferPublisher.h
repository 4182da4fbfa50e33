#pragma once

#include <memory>

#include "RobotCore.h"
#include "orvane/RobotSdk/Records.h"
#include "pbase/CShmTripleBuffer.h"
#include "publish/Publisher.h"

namespace orvane::robot {

/// For applications on the robot board: writes the records of the shared-memory buffers
/// "motion_observed" and "motion_sensor_observed". They stay when the robot ends, and their numbers
/// go on with the next one.
///
/// Threading contract: besides the Publisher's, answer() on any thread. The robot mutex guards the
/// motion buffer and its record, so that the answer to a request finds its way between the loop's
/// own records.
class BufferPublisher final : public Publisher {
 public:
  static constexpr const char* kMotionBuffer = "motion_observed";
  static constexpr const char* kSensorBuffer = "motion_sensor_observed";

  /// Becomes the writer of both buffers. Throws std::runtime_error that says which one it can't
  /// have.
  BufferPublisher(std::shared_ptr<RobotCore> core, std::shared_ptr<Voice> voice);

  /// Writes a motion record at once and hands out a copy. False: the robot is silent, or the buffer
  /// is lost just now. Doesn't allocate.
  [[nodiscard]] bool answer(RobotCore::Access& robot, RobotSdk::ObservedMotionRecord& copy);

 private:
  void writeMotion(const BodyState& body, bool spoilt) override;
  void writeSensors(const BodyState& body, bool spoilt) override;
  [[nodiscard]] bool writeMotionNow(RobotCore::Access& robot, bool spoilt);

  const std::shared_ptr<RobotCore> core_;
  Pexal::Memory::CShmTripleBuffer motionBuffer_;
  Pexal::Memory::CShmTripleBuffer sensorBuffer_;
  RobotSdk::ObservedMotionRecord motionRecord_{};
  RobotSdk::ObservedSensorRecord sensorRecord_{};
};

}  // namespace orvane::robot
