#include "shm/ShareMotionReader.h"

#include <mutex>
#include <utility>

#include "log/Log.h"
#include "shm/ShareMotionDomain.h"

namespace Robot::Motion {
namespace {

namespace level = orvane::RobotSdk::level;
using Pexal::PBase::PrioMutex;
using Pexal::PBase::SharedMemBuffer;
using Pexal::PBase::SharedMemSubscriber;
using Lock = std::lock_guard<PrioMutex>;

}  // namespace

template <class Record>
bool ShareMotionReader<Record>::init(const Json::Value& config) {
  const Lock lock(lock_);
  if (initialised_) return false;
  const ChannelStart start = startOn(kChannelOf<Record>, config);
  if (start.node == nullptr) return false;
  auto subscriber = start.node->subscriber(start.name);
  if (subscriber == nullptr || !subscriber->setMode(SharedMemSubscriber::kOn) ||
      !subscriber->isReady()) {
    return false;
  }
  subscriber_ = std::move(subscriber);
  initialised_ = true;
  return true;
}

template <class Record>
bool ShareMotionReader<Record>::initial(Callback callback) {
  std::shared_ptr<SharedMemSubscriber> subscriber;
  std::shared_ptr<const Callback> replaced;
  if (callback) replaced = std::make_shared<const Callback>(std::move(callback));
  {
    const Lock lock(lock_);
    if (subscriber_ == nullptr) return false;
    subscriber = subscriber_;
    callback_.swap(replaced);
    open_ = true;
  }
  subscriber->setCallback(
      [weak = this->weak_from_this()](const std::shared_ptr<SharedMemBuffer>& chunk) {
        if (const auto self = weak.lock(); self != nullptr && chunk != nullptr) {
          self->deliver(*chunk);
        }
      });
  return true;
}

template <class Record>
void ShareMotionReader<Record>::close() {
  std::shared_ptr<SharedMemSubscriber> subscriber;
  std::shared_ptr<const Callback> callback;
  {
    const Lock lock(lock_);
    subscriber.swap(subscriber_);
    callback.swap(callback_);
    open_ = false;
  }
  // Waits for a delivery, which takes the lock.
  if (subscriber != nullptr) subscriber->setMode(SharedMemSubscriber::kOff);
}

template <class Record>
void ShareMotionReader<Record>::deliver(const SharedMemBuffer& chunk) {
  std::shared_ptr<const Callback> callback;
  {
    const Lock lock(lock_);
    if (!open_ || callback_ == nullptr) return;
    callback = callback_;
  }
  if (chunk.size() < sizeof(Record)) {
    MOTION_LOG(kChannelUnit, level::kError, "invalid %s data size %u",
               rowOf(kChannelOf<Record>).shortName, chunk.size());
    return;
  }
  (*callback)(static_cast<const Record*>(chunk.payload()));
}

template class ShareMotionReader<ShareLowLevelMotionCtrlData>;
template class ShareMotionReader<ShareLowLevelMotionData>;

}  // namespace Robot::Motion
