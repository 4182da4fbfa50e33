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

template <class Record>
void write(CShmTripleBuffer& buffer, const Record& record) {
  if (buffer.put(&record, sizeof(record)) == 0) {
    throw std::runtime_error("a shared-memory buffer is lost");
  }
}

}  // namespace

BufferPublisher::BufferPublisher(std::shared_ptr<Voice> voice) : Publisher(std::move(voice)) {
  become(motionBuffer_, kMotionBuffer, sizeof(motionRecord_));
  become(sensorBuffer_, kSensorBuffer, sizeof(sensorRecord_));
}

void BufferPublisher::writeMotion(const BodyState& body, bool spoilt) {
  fill(motionRecord_, body);
  if (spoilt) spoil(motionRecord_, nextTurn());
  write(motionBuffer_, motionRecord_);
}

void BufferPublisher::writeSensors(const BodyState& body, bool spoilt) {
  fill(sensorRecord_, body);
  if (spoilt) spoil(sensorRecord_, nextTurn());
  write(sensorBuffer_, sensorRecord_);
}

}  // namespace orvane::robot
