#include "shm/ShareObservedReader.h"

namespace Robot::Motion {

std::shared_ptr<ShareObservedReader> ShareObservedReader::open(const ObservedBuffer& which) {
  auto reader = std::make_shared<ShareObservedReader>();
  if (!reader->buffer.open(which.name, true)) return nullptr;
  if (reader->buffer.recordSize() < which.recordSize) return nullptr;  // no read would ever succeed
  reader->size = which.recordSize;
  return reader;
}

}  // namespace Robot::Motion
