#include "shm/RingSubscriber.h"

#include <mutex>
#include <utility>

namespace Pexal::PBase {

SharedMemSubscriber::~SharedMemSubscriber() = default;

RingSubscriber::RingSubscriber(const std::string& name, const std::string& fileName,
                               const Schedule& schedule)
    : delivery_(std::make_shared<Delivery>(fileName)),
      thread_(std::make_unique<CThreadLite>("shm:" + name, 0, schedule.policy, schedule.priority,
                                            [delivery = delivery_] { delivery->run(); })) {}

RingSubscriber::~RingSubscriber() {
  if (delivery_ != nullptr) delivery_->end();
  // Joins the thread, or lets it end by itself when this runs on it.
}

bool RingSubscriber::isReady() const noexcept {
  return delivery_ != nullptr && delivery_->isOn();
}

bool RingSubscriber::setMode(int mode) {
  if (delivery_ == nullptr || (mode != kOn && mode != kOff)) return false;
  if (mode == kOn) {
    if (!startThread()) return false;
    delivery_->switchOn();
  } else {
    delivery_->switchOff();
    if (!thread_->isCurrentThread()) delivery_->awaitIdle();
  }
  return true;
}

bool RingSubscriber::startThread() {
  const std::lock_guard lock(mutex_);
  return !thread_->isThreadOver() || thread_->createThread();
}

void RingSubscriber::setCallback(Callback callback) {
  if (delivery_ != nullptr) delivery_->setCallback(std::move(callback));
}

}  // namespace Pexal::PBase
