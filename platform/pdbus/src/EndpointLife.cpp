#include "EndpointLife.h"

#include <mutex>
#include <utility>

#include "pbase/CTime.h"

namespace Pexal::PDBus {

using Lock = std::unique_lock<PBase::CMutex>;

bool EndpointThread::start(const std::string& name, std::function<void()> body) {
  control_ = std::make_shared<Control>();
  auto thread = std::make_unique<PBase::CThreadLite>(
      name, 0, 0, 0, [control = control_, body = std::move(body)]() mutable {
        control->id = std::this_thread::get_id();
        body();
        body = nullptr;                   // lets go of the shared state before the end is announced
        control->id = std::thread::id();  // the system may give it to another thread
        std::unique_ptr<PBase::CThread> self;
        const Lock lock(control->mutex);
        control->ended = true;
        if (control->abandoned) self = std::move(control->thread);
        control->changed.notifyAll();
      });
  // The body may end at once, so the object has to be in its place before.
  PBase::CThread* const started = thread.get();
  control_->thread = std::move(thread);
  if (started->createThread()) return true;
  const auto refused = std::move(control_->thread);
  control_.reset();
  return false;
}

EndpointThread::~EndpointThread() {
  if (!control_) return;
  std::unique_ptr<PBase::CThread> over;
  const Lock lock(control_->mutex);
  if (control_->ended) {
    over = std::move(control_->thread);
  } else {
    control_->abandoned = true;
  }
}

bool EndpointThread::awaitEnd(std::uint64_t deadlineUs) {
  if (!control_) return true;
  if (isCurrentThread()) return false;
  std::unique_ptr<PBase::CThread> over;
  Lock lock(control_->mutex);
  if (!control_->changed.waitUntil(lock, deadlineUs, [this] { return control_->ended; })) {
    return false;
  }
  over = std::move(control_->thread);
  lock.unlock();
  return true;  // `over` is joined here: nothing but the thread's last instructions is left
}

bool EndpointThread::isCurrentThread() const {
  return control_ && control_->id.load() == std::this_thread::get_id();
}

UseGate::Pass UseGate::enter() {
  const Lock lock(mutex_);
  if (closed_) return Pass(nullptr);
  ++inside_;
  return Pass(this);
}

void UseGate::leave() {
  const Lock lock(mutex_);
  if (--inside_ == 0) idle_.notifyAll();
}

void UseGate::close() {
  const Lock lock(mutex_);
  closed_ = true;
}

bool UseGate::closed() const {
  const Lock lock(mutex_);
  return closed_;
}

bool UseGate::awaitIdle(std::uint64_t deadlineUs) {
  Lock lock(mutex_);
  return idle_.waitUntil(lock, deadlineUs, [this] { return inside_ == 0; });
}

std::uint64_t deadlineAfter(std::uint64_t ms) {
  return PBase::CTime::getCurrentMicroSecond() + ms * 1000;
}

}  // namespace Pexal::PDBus
