#pragma once

#include <cstdint>
#include <memory>

#include "RobotCore.h"
#include "faults/Voice.h"
#include "publish/BufferPublisher.h"
#include "session/RefusalLog.h"
#include "shm/ShareMotionReader.h"
#include "shm/ShareMotionWriter.h"

namespace orvane::robot {

/// The robot's ends of the motors' shared-memory channels: takes the records of low-level clients
/// and answers those that ask for the observed motion, in the buffer and on the data channel.
///
/// Threading contract: made, opened and destroyed on the owner's thread. Records come on the
/// channel's delivery thread, which takes the robot mutex for each and holds nothing else; it
/// allocates only to log a refusal, at most once a second.
class MotorChannels {
 public:
  // The client's ends bear other nodes' names and are otherwise the same.
  static constexpr const char* kControlDomain = "motionControl";
  static constexpr const char* kControlNode = "motion_control_reader";
  static constexpr const char* kControlName = "motionCtrlShared";
  static constexpr const char* kDataDomain = "motionData";
  static constexpr const char* kDataNode = "motion_data_writer";
  static constexpr const char* kDataName = "motionDataShared";
  static constexpr std::int32_t kPoolSize = 32;  ///< chunks

  /// `observed` must outlive this.
  MotorChannels(std::shared_ptr<RobotCore> core, std::shared_ptr<Voice> voice,
                BufferPublisher& observed);
  ~MotorChannels();
  MotorChannels(const MotorChannels&) = delete;
  MotorChannels& operator=(const MotorChannels&) = delete;

  /// Takes records from now on. False, with the reason in the log: no shared memory, or another
  /// robot has the data channel.
  [[nodiscard]] bool open();

 private:
  using Record = Robot::Motion::ShareLowLevelMotionCtrlData;

  void take(const Record& shared);

  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<Voice> voice_;
  BufferPublisher& observed_;
  std::shared_ptr<Robot::Motion::ShareMotionCtrlReader> reader_;
  std::shared_ptr<Robot::Motion::ShareMotionDataPublisher> publisher_;
  RefusalLog refusals_{"control record"};  // the delivery thread's own
};

}  // namespace orvane::robot
