#include "harness/SystemCalls.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "harness/Clock.h"

namespace bench {
namespace {

constexpr long kMark = SYS_getppid;
constexpr std::int64_t kPollNs = 20'000;
constexpr std::int64_t kDeadlineNs = 60'000'000'000;
constexpr int kSystemCallStop = SIGTRAP | 0x80;  // PTRACE_O_TRACESYSGOOD

/// A traced thread; let go in the end.
///
/// Threading: one thread, since only the tracing one may ask anything.
class Trace {
 public:
  explicit Trace(pid_t thread) : thread_(thread) {
    ask(PTRACE_SEIZE, PTRACE_O_TRACESYSGOOD);
    ask(PTRACE_INTERRUPT, 0);
    static_cast<void>(awaitStop());
  }
  ~Trace() { ::ptrace(PTRACE_DETACH, thread_, nullptr, nullptr); }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  /// Lets it run to its next system call and returns the number of that.
  [[nodiscard]] long nextCall() {
    for (;;) {
      ask(PTRACE_SYSCALL, signal_);
      const int stop = awaitStop();
      signal_ = stop == kSystemCallStop || stop == SIGTRAP ? 0 : stop;
      if (stop != kSystemCallStop) continue;
      __ptrace_syscall_info info{};
      ask(PTRACE_GET_SYSCALL_INFO, sizeof info, &info);
      if (info.op == PTRACE_SYSCALL_INFO_ENTRY) return static_cast<long>(info.entry.nr);
    }
  }

 private:
  void ask(__ptrace_request request, long value, void* result = nullptr) const {
    const bool query = result != nullptr;
    void* const argument = reinterpret_cast<void*>(value);
    if (::ptrace(request, thread_, query ? argument : nullptr, query ? result : argument) < 0) {
      throw std::runtime_error(std::string("can't trace: ") + std::strerror(errno));
    }
  }

  [[nodiscard]] int awaitStop() const {
    const std::int64_t deadline = nowNs() + kDeadlineNs;
    for (;;) {
      int status = 0;
      const pid_t stopped = ::waitpid(thread_, &status, __WALL | WNOHANG);
      if (stopped == thread_ && WIFSTOPPED(status)) return WSTOPSIG(status);
      if (stopped != 0 || nowNs() > deadline) {
        throw std::runtime_error("the traced process ended or doesn't move");
      }
      sleepUntilNs(nowNs() + kPollNs);
    }
  }

  pid_t thread_;
  long signal_ = 0;  // to be passed on to it
};

}  // namespace

void markSystemCalls() noexcept {
  ::syscall(kMark);
}

Traced countSystemCalls(Child& child, const Json::Value& command, std::uint32_t pairs) {
  Traced traced;
  {
    Trace trace(child.pid());
    child.send(command);
    bool between = false;
    for (std::uint32_t marks = 0; marks < 2 * pairs;) {
      if (trace.nextCall() == kMark) {
        between = !between;
        ++marks;
      } else if (between) {
        ++traced.systemCalls;
      }
    }
  }
  traced.answer = child.receive();
  return traced;
}

}  // namespace bench
