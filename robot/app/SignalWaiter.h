#pragma once

#include <csignal>
#include <cstdint>

namespace orvane::robot {

/// Turns SIGINT and SIGTERM into an answer instead of an interruption. Make it before any thread
/// starts: threads inherit the mask.
class SignalWaiter {
 public:
  SignalWaiter();

  /// Waits at most `ms` milliseconds. True: the process was asked to end.
  [[nodiscard]] bool wait(std::uint32_t ms) const;

 private:
  sigset_t signals_{};
};

}  // namespace orvane::robot
