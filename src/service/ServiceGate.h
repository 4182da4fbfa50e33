#pragma once

#include <cstdint>
#include <thread>

#include "pbase/CMutex.h"

namespace orvane::RobotSdk::service {

/// The service mutex: one public operation of the service at a time.
///
/// It differs from a plain mutex where a plain one would deadlock. An operation can hold the gate
/// while it waits for application callbacks to end (shutdown stops the event bus, a log sink is
/// removed); a callback that calls the service at that moment is refused instead of waiting for its
/// own end. The same goes for a thread that is inside the gate already (a logger callback that
/// calls the service back).
///
/// Threading contract: any thread may enter. Lock order: the gate comes first; its own mutex_ is a
/// leaf that is held for a look at the flags only.
class ServiceGate {
 public:
  /// Holds the gate while it lives, when it tests true.
  class Entry {
   public:
    Entry(Entry&& other) noexcept : gate_(other.gate_) { other.gate_ = nullptr; }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    Entry& operator=(Entry&&) = delete;
    ~Entry() {
      if (gate_ != nullptr) gate_->leave();
    }
    explicit operator bool() const noexcept { return gate_ != nullptr; }

   private:
    friend class ServiceGate;
    explicit Entry(ServiceGate* gate) noexcept : gate_(gate) {}
    ServiceGate* gate_;
  };

  /// While it lives, the gate's holder waits for application callbacks.
  class Draining {
   public:
    explicit Draining(ServiceGate& gate) : gate_(gate) { gate_.setDraining(true); }
    ~Draining() { gate_.setDraining(false); }
    Draining(const Draining&) = delete;
    Draining& operator=(const Draining&) = delete;

   private:
    ServiceGate& gate_;
  };

  static constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};

  /// Waits until the gate is free, at most `limitMs`. Refused when that time is over, when this
  /// thread holds the gate, and inside a callback while the holder waits for callbacks.
  [[nodiscard]] Entry enter(std::uint64_t limitMs = kNoLimit);

 private:
  void leave() noexcept;
  void setDraining(bool draining);

  Pexal::PBase::CMutex mutex_;  // guards the three below
  bool held_ = false;
  bool draining_ = false;
  std::thread::id holder_;
  Pexal::PBase::CCondition changed_;
};

}  // namespace orvane::RobotSdk::service
