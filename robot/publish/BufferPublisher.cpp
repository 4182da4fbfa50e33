#include "publish/BufferPublisher.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "faults/Nonsense.h"
#include "publish/Samples.h"

namespace orvane::robot {
namespace {

using Pexal::Memory::CShmTripleBuffer;

void become(CShmTripleBuffer& buffer, const char* name, std::uint32_t size) {
  if (buffer.create(name, size)) return;
  throw std::runtime_error("can't write the buffer " + std::string(name) +
                           "; does another robot serve this board? (the log says why)");
}

constexpr const char* kLost = "a shared-memory buffer is lost";

}  // namespace

BufferPublisher::BufferPublisher(std::shared_ptr<RobotCore> core, std::shared_ptr<Voice> voice)
    : Publisher(std::move(voice), true), core_(std::move(core)) {
  become(motionBuffer_, kMotionBuffer, sizeof(motionRecord_));
  become(sensorBuffer_, kSensorBuffer, sizeof(sensorRecord_));
}

bool BufferPublisher::writeMotionNow(RobotCore::Access& robot, bool spoilt) {
  fill(motionRecord_, robot.body());
  if (spoilt) spoil(motionRecord_, nextTurn());
  return motionBuffer_.put(&motionRecord_, sizeof(motionRecord_)) != 0;
}

bool BufferPublisher::answer(RobotCore::Access& robot, RobotSdk::ObservedMotionRecord& copy) {
  if (isSilent() || !writeMotionNow(robot, talksNonsense())) return false;
  copy = motionRecord_;
  return true;
}

// The body is the same as the robot's own: only the caller's thread moves it.
void BufferPublisher::writeMotion(const BodyState&, bool spoilt) {
  RobotCore::Access robot = core_->access();
  if (!writeMotionNow(robot, spoilt)) throw std::runtime_error(kLost);
}

void BufferPublisher::writeSensors(const BodyState& body, bool spoilt) {
  fill(sensorRecord_, body);
  if (spoilt) spoil(sensorRecord_, nextTurn());
  if (sensorBuffer_.put(&sensorRecord_, sizeof(sensorRecord_)) == 0)
    throw std::runtime_error(kLost);
}

}  // namespace orvane::robot
