#pragma once

#include <atomic>
#include <cstdint>

#include "pbase/RTAbsSleep.h"

namespace orvane::RobotSdk::lowlevel {

/// One byte that says who may use the control writer and the observed reader: at most one at a
/// time. The application's threads never wait for it: a busy gate is a refusal. The worker does
/// wait: a send leaves within 7 ms, and a wait for an observed record as soon as it sees, within
/// 0.1 ms, that the state has left "connected" and "prepared".
class SendGate {
 public:
  /// The application's way: holds the gate, or doesn't, until the end of the scope.
  class Attempt {
   public:
    explicit Attempt(SendGate& gate) noexcept : gate_(gate), holds_(gate.tryTake()) {}
    ~Attempt() {
      if (holds_) gate_.release();
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    [[nodiscard]] bool holds() const noexcept { return holds_; }

   private:
    SendGate& gate_;
    const bool holds_;
  };

  /// The worker's way: waits until the gate is free, and holds it until the end of the scope.
  class Passage {
   public:
    explicit Passage(SendGate& gate) noexcept : gate_(gate) {
      Pexal::PBase::RTAbsSleep pause;
      while (!gate_.tryTake()) pause.manualBackoff(kLongestPauseNs);
    }
    ~Passage() { gate_.release(); }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

   private:
    SendGate& gate_;
  };

 private:
  static constexpr std::uint32_t kLongestPauseNs = 100'000;

  [[nodiscard]] bool tryTake() noexcept {
    return taken_.exchange(1, std::memory_order_acquire) == 0;
  }
  void release() noexcept { taken_.store(0, std::memory_order_release); }

  std::atomic<std::uint8_t> taken_{0};
};

}  // namespace orvane::RobotSdk::lowlevel
