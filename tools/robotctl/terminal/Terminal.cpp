#include "terminal/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/Failure.h"
#include "terminal/Clock.h"

namespace robotctl {
namespace {

// Other screen, no cursor, no wrapping at the right edge; and all that undone.
constexpr std::string_view kEnter = "\033[?1049h\033[?25l\033[?7l\033[2J";
constexpr std::string_view kLeave = "\033[0m\033[?7h\033[?25h\033[?1049l";
constexpr std::uint64_t kLeaveMs = 300;
constexpr std::array kDeadly = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGQUIT};

/// What the signal handlers need. Written before they are installed.
struct Restorable {
  int terminal = -1;
  int changed = -1;
  int standardError = -1;  // a copy of the real one
  int messages = -1;       // what was written to standard error meanwhile
  termios before{};
};
Restorable restorable;
std::atomic<bool> entered{false};
std::atomic<bool> left{false};                          // kLeave was sent
static_assert(std::atomic<bool>::is_always_lock_free);  // the handlers use it

/// Async-signal-safe; does its work once.
void restoreTerminal() {
  if (!entered.exchange(false)) return;
  const int error = errno;
  // A stalled terminal may not take these bytes. Nothing more can be done for it here.
  if (!left && ::write(restorable.terminal, kLeave.data(), kLeave.size()) < 0) errno = 0;
  tcsetattr(restorable.terminal, TCSANOW, &restorable.before);
  dup2(restorable.standardError, STDERR_FILENO);
  std::array<char, 512> chunk;
  for (ssize_t size = 0; (size = ::read(restorable.messages, chunk.data(), chunk.size())) > 0;) {
    if (::write(STDERR_FILENO, chunk.data(), static_cast<std::size_t>(size)) < 0) break;
  }
  errno = error;
}

void dieRestored(int number) {
  restoreTerminal();
  // SA_RESETHAND has put the default back: this ends the process once the handler returns.
  raise(number);
}

/// The third of these signals ends the program on the spot (core/Signals.h): before that, the
/// terminal is put back.
constexpr std::array kEnding = {SIGINT, SIGTERM, SIGHUP};
constexpr int kImpatient = 3;
std::array<struct sigaction, kEnding.size()> endingBefore;
std::atomic<int> endingCount{0};

void endRestored(int number) {
  if (endingCount.fetch_add(1) + 1 >= kImpatient) restoreTerminal();
  for (std::size_t i = 0; i < kEnding.size(); ++i) {
    if (kEnding[i] == number) endingBefore[i].sa_handler(number);
  }
}

constexpr std::uint64_t kContinued = 1u << 20;

void noteChange(int number) {
  const int error = errno;
  const std::uint64_t amount = number == SIGCONT ? kContinued : 1;
  if (::write(restorable.changed, &amount, sizeof amount) < 0) errno = 0;
  errno = error;
}

void onSignal(int number, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

termios withoutLines(termios settings) {
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | ICRNL | INLCR);
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  return settings;
}

/// A description of its own: that it doesn't block stays unknown to the shell.
int openTerminal() {
  constexpr int kFlags = O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  std::array<char, 256> name{};
  int fd = -1;
  if (ttyname_r(STDOUT_FILENO, name.data(), name.size()) == 0) fd = open(name.data(), kFlags);
  return fd >= 0 ? fd : open("/dev/tty", kFlags);
}

}  // namespace

bool Terminal::usable(bool keys) {
  const char* term = std::getenv("TERM");
  const bool places = term != nullptr && *term != '\0' && std::strcmp(term, "dumb") != 0;
  return places && isatty(STDOUT_FILENO) == 1 && (!keys || isatty(STDIN_FILENO) == 1);
}

Terminal::Terminal() : fd_(openTerminal()) {
  if (fd_ < 0 || tcgetattr(fd_, &restorable.before) != 0) {
    const std::string why = std::strerror(errno);
    if (fd_ >= 0) close(fd_);
    throw Failure(ExitCode::kUsage, "the terminal can't be opened: " + why);
  }
  restorable.terminal = fd_;
  restorable.changed = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  restorable.standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  left = false;
  entered = true;
  static const int registered = std::atexit(restoreTerminal);
  static_cast<void>(registered);
  for (const int number : kDeadly) {
    onSignal(number, dieRestored, static_cast<int>(SA_RESETHAND | SA_NODEFER));
  }
  onSignal(SIGWINCH, noteChange, SA_RESTART);
  onSignal(SIGCONT, noteChange, SA_RESTART);
  for (std::size_t i = 0; i < kEnding.size(); ++i) {
    sigaction(kEnding[i], nullptr, &endingBefore[i]);
    const auto before = endingBefore[i].sa_handler;
    if (before != SIG_DFL && before != SIG_IGN) onSignal(kEnding[i], endRestored, SA_RESTART);
  }
  const termios settings = withoutLines(restorable.before);
  tcsetattr(fd_, TCSAFLUSH, &settings);
  captureMessages();
  write(kEnter);
}

Terminal::~Terminal() {
  leave();
  restoreTerminal();
  onSignal(SIGWINCH, SIG_DFL, 0);
  onSignal(SIGCONT, SIG_DFL, 0);
  for (const int number : kDeadly) onSignal(number, SIG_DFL, 0);
  for (std::size_t i = 0; i < kEnding.size(); ++i) sigaction(kEnding[i], &endingBefore[i], nullptr);
  for (const int fd : {fd_, messages_, restorable.changed, restorable.standardError}) {
    if (fd >= 0) close(fd);
  }
  restorable = {};
}

/// A slow terminal may have taken half a picture, even half an escape sequence: the rest goes
/// first. Bounded, for a terminal that takes nothing at all.
void Terminal::leave() {
  if (!entered) return;
  const std::uint64_t deadline = monotonicMs() + kLeaveMs;
  write(kLeave);
  for (std::uint64_t now = 0; !ready() && !gone_ && (now = monotonicMs()) < deadline;) {
    pollfd output{fd_, POLLOUT, 0};
    ::poll(&output, 1, static_cast<int>(deadline - now));
  }
  left = unsent_.empty();
}

void Terminal::captureMessages() {
  if (isatty(STDERR_FILENO) != 1) return;  // it goes elsewhere already
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return;
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  messages_ = ends[0];
  restorable.messages = ends[0];
}

std::string Terminal::takeMessages() {
  std::string messages;
  std::array<char, 4096> chunk;
  for (ssize_t size = 0; messages_ >= 0 && messages.size() < 65536 &&
                         (size = ::read(messages_, chunk.data(), chunk.size())) > 0;) {
    messages.append(chunk.data(), static_cast<std::size_t>(size));
  }
  return messages;
}

Size Terminal::size() const {
  winsize window{};
  if (ioctl(fd_, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) return {};
  return {window.ws_col, window.ws_row};
}

int Terminal::changeFd() const {
  return restorable.changed;
}

bool Terminal::takeChange() {
  std::uint64_t changes = 0;
  if (::read(restorable.changed, &changes, sizeof changes) != sizeof changes) return false;
  if (changes >= kContinued) {  // the shell has had the terminal and given it its own settings
    const termios settings = withoutLines(restorable.before);
    tcsetattr(fd_, TCSANOW, &settings);
    write(kEnter);
  }
  return true;
}

std::string Terminal::read() {
  std::string typed;
  std::array<char, 256> chunk;
  while (true) {
    const ssize_t size = ::read(fd_, chunk.data(), chunk.size());
    if (size > 0) {
      typed.append(chunk.data(), static_cast<std::size_t>(size));
      if (static_cast<std::size_t>(size) < chunk.size()) break;
      continue;
    }
    if (size < 0 && errno == EINTR) continue;
    if (size == 0 || errno != EAGAIN) gone_ = true;
    break;
  }
  return typed;
}

bool Terminal::ready() {
  write({});
  return unsent_.empty() && !gone_;
}

void Terminal::write(std::string_view bytes) {
  unsent_ += bytes;
  while (!unsent_.empty()) {
    const ssize_t size = ::write(fd_, unsent_.data(), unsent_.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) {
      if (errno != EAGAIN) gone_ = true;
      return;
    }
    unsent_.erase(0, static_cast<std::size_t>(size));
  }
}

}  // namespace robotctl
