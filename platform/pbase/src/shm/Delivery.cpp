#include "shm/Delivery.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>
#include <utility>

#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace Pexal::PBase {
namespace {

constexpr std::uint64_t kLookUs = 10'000;
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

const char* textOf(int refusal) {
  switch (refusal) {
    case EPROTO:
      return "it isn't a channel of this version";
    case EUSERS:
      return "all places for subscribers are taken";
    default:
      return ::strerrordesc_np(refusal);
  }
}

}  // namespace

/// With mutex_.
void Delivery::change() {
  ++changes_;
  changed_.notifyAll();
  if (attachment_ != nullptr) attachment_->kick();
}

void Delivery::switchOn() {
  if (isOn()) return;
  // What has the name by now was there first; what appears from here on is later.
  const Memory::ShmIdentity known = Memory::ShmIdentity::of(fileName_);
  std::shared_ptr<Attachment> attachment = join(known);
  const std::lock_guard lock(mutex_);
  if (isOn_ || isOver_) return;
  isOn_ = true;
  known_ = known;
  attachment_.swap(attachment);
  change();
}

void Delivery::switchOff() {
  std::shared_ptr<Attachment> former;
  const std::lock_guard lock(mutex_);
  isOn_ = false;
  change();
  former.swap(attachment_);
  if (former != nullptr) former->leave();
}

void Delivery::end() {
  switchOff();
  const std::lock_guard lock(mutex_);
  isOver_ = true;
  change();
}

void Delivery::awaitIdle() {
  std::unique_lock lock(mutex_);
  changed_.waitUntil(lock, kNever, [this] { return !isBusy_ || isOn_; });
}

bool Delivery::isOn() const {
  const std::lock_guard lock(mutex_);
  return isOn_;
}

void Delivery::setCallback(Callback callback) {
  auto shared = callback ? std::make_shared<const Callback>(std::move(callback)) : nullptr;
  std::shared_ptr<const Callback> former = shared;
  const std::lock_guard lock(mutex_);
  callback_.swap(former);
  change();
}

void Delivery::run() {
  for (Orders orders; awaitOrders(orders); orders = {}) {
    if (orders.attachment != nullptr) {
      serve(orders);
    } else {
      look(orders);
    }
  }
}

bool Delivery::awaitOrders(Orders& orders) {
  std::unique_lock lock(mutex_);
  if (!isOn_) {
    isBusy_ = false;
    changed_.notifyAll();
    changed_.waitUntil(lock, kNever, [this] { return isOn_ || isOver_; });
  }
  if (isOver_) return false;
  isBusy_ = true;
  orders = {changes_, attachment_, callback_, known_};
  return true;
}

void Delivery::serve(const Orders& orders) {
  Attachment& attachment = *orders.attachment;
  bool isSuperseded = false;
  while (changes_.load() == orders.changes) {
    const bool isLast = isSuperseded || attachment.isRetired();
    if (deliverNext(orders)) continue;
    if (isLast || !attachment.isSound()) return leave(orders.attachment);
    isSuperseded = !attachment.sleep(changes_, orders.changes) && hasSuccessor(attachment);
  }
}

bool Delivery::deliverNext(const Orders& orders) try {
  if (orders.callback == nullptr) {
    orders.attachment->skip();
    return false;
  }
  const std::shared_ptr<SharedMemBuffer> chunk = orders.attachment->take();
  if (chunk == nullptr) return false;
  (*orders.callback)(chunk);
  return true;
} catch (const std::exception& error) {
  logException(error.what());
  return true;
} catch (...) {
  logException("of unknown type");
  return true;
}

void Delivery::logException(const char* text) {
  if (hasThrown_) return;
  hasThrown_ = true;
  ILogger::instance()->log(4, "pbase", "[SharedMem]callback of %s threw (logged once): %s\n",
                           fileName_.c_str(), text);
}

void Delivery::leave(const std::shared_ptr<Attachment>& attachment) {
  attachment->leave();
  former_ = attachment;
  const std::lock_guard lock(mutex_);
  if (attachment_ != attachment) return;
  attachment_.reset();  // held by former_
  known_ = attachment->identity();
}

void Delivery::look(const Orders& orders) {
  const bool isStale = former_ != nullptr && !hasSuccessor(*former_);
  // Damage may be mended by what is published next, but not at once.
  if (isStale && !former_->isSound() && pause(orders)) return;
  std::shared_ptr<Attachment> attachment;
  if (!isStale || !former_->isRetired()) attachment = join(orders.known);
  if (attachment == nullptr) {
    (void)pause(orders);
    return;
  }
  former_.reset();
  const std::lock_guard lock(mutex_);
  if (changes_ == orders.changes) attachment_.swap(attachment);
}

/// True when there is something new to go by.
bool Delivery::pause(const Orders& orders) {
  std::unique_lock lock(mutex_);
  return changed_.waitUntil(lock, CTime::getCurrentMicroSecond() + kLookUs,
                            [&] { return changes_ != orders.changes; });
}

bool Delivery::hasSuccessor(const Attachment& attachment) const {
  const auto present = Memory::ShmIdentity::of(fileName_);
  return present != Memory::ShmIdentity{} && present != attachment.identity();
}

std::shared_ptr<Attachment> Delivery::join(const Memory::ShmIdentity& known) {
  std::shared_ptr<Attachment> attachment = Attachment::join(fileName_, known);
  const int refusal = attachment != nullptr || errno == ENOENT ? 0 : errno;
  if (lastRefusal_.exchange(refusal) != refusal && refusal != 0) {
    ILogger::instance()->log(3, "pbase", "[SharedMem]can't subscribe to %s yet: %s\n",
                             fileName_.c_str(), textOf(refusal));
  }
  return attachment;
}

}  // namespace Pexal::PBase
