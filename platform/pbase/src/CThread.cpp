#include "pbase/CThread.h"

#include <limits.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "Sleep.h"
#include "VirtualTime.h"
#include "pbase/CMutex.h"
#include "pbase/ILogger.h"

namespace Pexal::PBase {

/// What the object and its running thread share; whichever goes last frees it.
struct CThread::Control {
  Control(std::string name_, std::uint32_t stackGranules_, int policy_, int priority_,
          std::function<void()> body_)
      : name(std::move(name_)),
        stackGranules(stackGranules_),
        policy(policy_),
        priority(priority_),
        body(std::move(body_)) {}

  bool start(const std::shared_ptr<Control>& self);
  void retire();
  int spawn(void* argument);
  void cancel();
  void end();
  void runBody() noexcept;
  static void* threadMain(void* argument);

  const std::string name;
  const std::uint32_t stackGranules;
  const int policy;
  const int priority;
  const std::function<void()> body;

  CMutex mutex;        // guards handle, joinable and the changes of the flags below
  CCondition changed;  // of the flags
  pthread_t handle{};
  bool joinable = false;  // handle is a thread that is neither joined nor detached
  std::atomic<bool> running{false};
  std::atomic<bool> cancelled{false};

  static constinit thread_local Control* current;
};

constinit thread_local CThread::Control* CThread::Control::current = nullptr;

namespace {

/// Longest sleep on a cancelled thread: a loop that polls there for something else neither spins
/// nor stops simulated time.
constexpr std::uint64_t kCancelledSleepUs = 1000;

}  // namespace

/// Handed to a new thread; its own from then on.
struct ThreadStart {
  std::shared_ptr<void> control;
  Participant participant;
};

int CThread::Control::spawn(void* argument) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stackGranules > 0) {
    const std::size_t bytes = std::size_t{stackGranules} * 64 * 1024;
    pthread_attr_setstacksize(&attributes, std::max<std::size_t>(bytes, PTHREAD_STACK_MIN));
  }
  int error = EPERM;
  if (policy == 1 || policy == 2) {
    sched_param parameters{};
    parameters.sched_priority = std::clamp(priority, 1, 99);
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, policy == 1 ? SCHED_FIFO : SCHED_RR);
    pthread_attr_setschedparam(&attributes, &parameters);
    error = pthread_create(&handle, &attributes, &Control::threadMain, argument);
    pthread_attr_setinheritsched(&attributes, PTHREAD_INHERIT_SCHED);
  }
  if (error == EPERM) {
    error = pthread_create(&handle, &attributes, &Control::threadMain, argument);
  }
  pthread_attr_destroy(&attributes);
  return error;
}

/// Lets go of the last thread: joins it (it must be past its body), or detaches it when it is the
/// caller. With mutex held.
void CThread::Control::retire() {
  if (!joinable) return;
  joinable = false;
  if (pthread_equal(handle, pthread_self()) != 0) {
    pthread_detach(handle);
  } else {
    pthread_join(handle, nullptr);
  }
}

bool CThread::Control::start(const std::shared_ptr<Control>& self) {
  int error = 0;
  {
    const std::lock_guard guard(mutex);
    if (running) return false;
    // The previous thread is past its body and takes no lock any more.
    retire();
    cancelled = false;

    auto start = std::make_unique<ThreadStart>();
    start->control = self;
    start->participant.name = name;
    VirtualTime::instance().enter(start->participant);
    running = true;
    error = spawn(start.get());
    if (error == 0) {
      joinable = true;
      (void)start.release();  // the thread owns it now
    } else {
      VirtualTime::instance().leave(start->participant);
      running = false;
    }
  }
  if (error != 0) {
    ILogger::instance()->log(4, "pbase", "[CThread]no thread for %s: %s\n", name.c_str(),
                             ::strerrordesc_np(error));
  }
  return error == 0;
}

void* CThread::Control::threadMain(void* argument) {
  const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(argument));
  VirtualTime::adopt(&start->participant);
  auto* const control = static_cast<Control*>(start->control.get());
  pthread_setname_np(pthread_self(), control->name.substr(0, 15).c_str());
  current = control;
  control->runBody();
  control->end();
  current = nullptr;
  start->control.reset();  // may free what the body holds, if the object died on this thread
  VirtualTime::instance().leave(start->participant);
  VirtualTime::adopt(nullptr);
  return nullptr;
}

void CThread::Control::runBody() noexcept {
  try {
    if (body) body();
    return;
  } catch (const std::exception& error) {
    ILogger::instance()->log(4, "pbase", "[CThread]%s ended by an exception: %s\n", name.c_str(),
                             error.what());
  } catch (...) {
    ILogger::instance()->log(4, "pbase", "[CThread]%s ended by an exception of unknown type\n",
                             name.c_str());
  }
}

void CThread::Control::end() {
  const std::lock_guard guard(mutex);
  running = false;
  changed.notifyAll();
}

void CThread::Control::cancel() {
  const std::lock_guard guard(mutex);
  if (!running) return;
  cancelled = true;
  changed.notifyAll();
}

CThread::CThread(std::string name, std::uint32_t stackGranules, int policy, int priority,
                 std::function<void()> body)
    : control_(std::make_shared<Control>(std::move(name), stackGranules, policy, priority,
                                         std::move(body))) {}

CThread::~CThread() {
  control_->cancel();
  std::unique_lock lock(control_->mutex);
  if (!isCurrentThread()) {
    control_->changed.waitUntil(lock, kNeverUs, [this] { return !control_->running; });
  }
  control_->retire();
}

bool CThread::createThread() {
  const auto control = control_;  // the new thread may destroy this object before this call is over
  return control->start(control);
}

void CThread::cancelThread() {
  control_->cancel();
}

bool CThread::isThreadOver() const {
  return !control_->running;
}

bool CThread::isCurrentThread() const {
  return Control::current == control_.get();
}

bool CThread::looping() {
  return Control::current == nullptr || !Control::current->cancelled;
}

void CThread::sleep(std::uint32_t ms) {
  const std::uint64_t us = ms * std::uint64_t{1000};
  if (auto* const self = Control::current; self != nullptr && !self->cancelled) {
    sleepUnless(self->mutex, self->changed, us, [self] { return self->cancelled.load(); });
    return;
  }
  CMutex mutex;
  CCondition never;
  sleepUnless(mutex, never, Control::current != nullptr ? std::min(us, kCancelledSleepUs) : us,
              [] { return false; });
}

}  // namespace Pexal::PBase
