#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// A restartable thread.
///
/// Threading contract: createThread, cancelThread and isThreadOver may be called from any thread,
/// createThread by one at a time. The object may be destroyed on its own thread: the running body
/// is cancelled, goes on and ends by itself (it reaches its own state through the static operations
/// only). Destroyed on another thread, it cancels the body and waits for its end, however long that
/// takes: the body may still use what the destroying thread frees next. An exception that leaves
/// the body is logged and ends the thread. Cancelling is all this class does to a running body: no
/// signal, no pthread_cancel.
class PEXAL_API CThread {
 public:
  virtual ~CThread();
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  /// Starts the body on a new thread. False when one still runs or the system refuses a thread.
  bool createThread();
  /// Asks the body to end: looping() turns false on its thread, and a CThread::sleep in progress
  /// there returns at once. Doesn't wait. Nothing happens when no thread runs.
  void cancelThread();
  /// True when no body runs: never started, or returned.
  [[nodiscard]] bool isThreadOver() const;
  /// True on the thread that runs this object's body.
  [[nodiscard]] bool isCurrentThread() const;

  /// On a thread of this class: true until it is cancelled. On any other thread: true.
  [[nodiscard]] static bool looping();
  /// Sleeps `ms` milliseconds of the platform's clock. Cancelling the thread ends the sleep; on a
  /// thread that is cancelled already it lasts 1 ms at most (not 0, so that a loop which polls
  /// there doesn't spin).
  static void sleep(std::uint32_t ms);

 protected:
  CThread(std::string name, std::uint32_t stackGranules, int policy, int priority,
          std::function<void()> body);

 private:
  struct Control;
  std::shared_ptr<Control> control_;
};

/// A CThread made of a function.
class PEXAL_API CThreadLite final : public CThread {
 public:
  /// `name`: shown by the system, cut to 15 characters there. `stackGranules`: stack size in units
  /// of 64 KiB (64 = 4 MiB; 0 = the system's default). `policy`: 0 = the creator's scheduling, 1 =
  /// SCHED_FIFO, 2 = SCHED_RR; `priority`: 1 to 99 with policies 1 and 2, else 0. Where the process
  /// has no right to the policy the thread runs without it.
  CThreadLite(std::string name, std::uint32_t stackGranules, int policy, int priority,
              std::function<void()> body)
      : CThread(std::move(name), stackGranules, policy, priority, std::move(body)) {}
};

/// Marks the calling thread as blocked outside pbase (in a DDS wait set, a socket, another
/// library's join) while it lives, so that a VirtualClock doesn't stand still for it. Wrap such a
/// wait in one, and nothing else. Costs nothing without a VirtualClock.
class PEXAL_API ExternalWait {
 public:
  ExternalWait() noexcept;
  ~ExternalWait();
  ExternalWait(const ExternalWait&) = delete;
  ExternalWait& operator=(const ExternalWait&) = delete;
};

}  // namespace Pexal::PBase
