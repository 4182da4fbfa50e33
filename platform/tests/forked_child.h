#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace platform_test {

/// A piece of the test in a process of its own, which starts with a copy of all there is. Killed at
/// the latest when this goes, or the thread that made this. Made while no other thread runs.
class ForkedChild {
 public:
  explicit ForkedChild(const std::function<void()>& body) {
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) body();  // else it died before that
    _exit(0);
  }
  ~ForkedChild() { end(); }
  ForkedChild(const ForkedChild&) = delete;
  ForkedChild& operator=(const ForkedChild&) = delete;

  [[nodiscard]] pid_t process() const { return process_; }
  /// Kills it; returns when it is gone.
  void end() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  pid_t process_ = -1;
};

}  // namespace platform_test
