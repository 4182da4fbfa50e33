#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "pbase/CMutex.h"
#include "pbase/CThread.h"

namespace Pexal::PDBus {

/// The thread of an endpoint, ended with a bound. The body keeps what it needs alive by itself (it
/// holds its state shared), so that a thread which is stuck in application code can be left behind:
/// it then ends by itself later and takes its thread object along.
///
/// Threading: start once, before anything else; the others from any thread, the body's own
/// included. The destructor never waits for a body that still runs. Control::mutex is a leaf.
class EndpointThread {
 public:
  EndpointThread() = default;
  EndpointThread(const EndpointThread&) = delete;
  EndpointThread& operator=(const EndpointThread&) = delete;
  ~EndpointThread();

  [[nodiscard]] bool start(const std::string& name, std::function<void()> body);
  /// Waits until the body has ended, at most until `deadlineUs` (CTime). True when it has, or was
  /// never started; false on the thread itself.
  bool awaitEnd(std::uint64_t deadlineUs);
  [[nodiscard]] bool isCurrentThread() const;

 private:
  struct Control {
    std::atomic<std::thread::id> id{};
    PBase::CMutex mutex;  // guards the following
    PBase::CCondition changed;
    bool ended = false;
    bool abandoned = false;
    std::unique_ptr<PBase::CThread> thread;
  };
  std::shared_ptr<Control> control_;
};

/// Counts the operations that are using an endpoint's DDS entities, so that these are deleted when
/// the last one has left. Any thread; its mutex is a leaf.
class UseGate {
 public:
  class Pass {
   public:
    Pass(Pass&& other) noexcept : gate_(std::exchange(other.gate_, nullptr)) {}
    Pass& operator=(Pass&&) = delete;
    ~Pass() {
      if (gate_ != nullptr) gate_->leave();
    }
    /// False when the gate was closed: use nothing.
    explicit operator bool() const { return gate_ != nullptr; }

   private:
    friend class UseGate;
    explicit Pass(UseGate* gate) : gate_(gate) {}
    UseGate* gate_;
  };

  [[nodiscard]] Pass enter();
  /// Lets nobody in any more. Doesn't wait.
  void close();
  [[nodiscard]] bool closed() const;
  /// Waits until everybody has left.
  bool awaitIdle(std::uint64_t deadlineUs);

 private:
  void leave();

  mutable PBase::CMutex mutex_;  // guards closed_, inside_
  PBase::CCondition idle_;
  bool closed_ = false;
  std::uint32_t inside_ = 0;
};

/// CTime's now plus `ms`, in microseconds.
[[nodiscard]] std::uint64_t deadlineAfter(std::uint64_t ms);

}  // namespace Pexal::PDBus
