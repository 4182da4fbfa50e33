#pragma once

#include <cstdint>

namespace robotctl {

/// SIGINT, SIGTERM and SIGHUP as a request to end, and SIGPIPE ignored. One object in a process,
/// made before any thread; main() has it in Context.
///
/// The first signal is a request: `requested()`, `fd()` becomes readable, Robot's waits throw
/// Interrupted, and destructors stop the robot and give control back, which is bounded. The third
/// ends the process at once, for people who can't wait; the robot then stops by itself within a
/// second.
///
/// Threading: the handlers run on any thread and write to an eventfd only; every member may be
/// called from any thread. Handlers are installed with SA_RESTART, but poll() and friends still end
/// with EINTR: look again. SIGWINCH and SIGTSTP are left alone (terminal/ may have them). An
/// exec()ed program inherits that SIGPIPE is ignored: call restoreDefaults() before exec().
class Interrupts {
 public:
  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  /// True once one of the signals came.
  [[nodiscard]] bool requested() const;
  /// Readable from then on; for poll(). Never read from it.
  [[nodiscard]] int fd() const { return fd_; }
  /// Throws Interrupted when requested.
  void check() const;
  /// Sleeps, and throws Interrupted as soon as requested.
  void sleep(std::uint32_t milliseconds) const;
  /// Waits until `other` is readable (true), or the time is over (false). Throws Interrupted as
  /// soon as requested.
  [[nodiscard]] bool waitReadable(int other, std::uint32_t milliseconds) const;

  /// Every signal as it was when the program began.
  static void restoreDefaults();

 private:
  int fd_;
};

}  // namespace robotctl
