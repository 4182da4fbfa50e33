#include "core/Signals.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "core/Failure.h"

namespace robotctl {
namespace {

constexpr std::array<int, 3> kEnding{SIGINT, SIGTERM, SIGHUP};
constexpr std::array<int, 4> kTouched{SIGINT, SIGTERM, SIGHUP, SIGPIPE};
constexpr int kImpatient = 3;  // that many signals end the process at once

// What a handler may touch.
std::atomic<int> firstSignal{0};
std::atomic<int> signalCount{0};
std::atomic<int> wakeFd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

std::array<struct sigaction, kTouched.size()> actionsBefore;

void onSignal(int number) {
  const int errnoBefore = errno;
  int none = 0;
  firstSignal.compare_exchange_strong(none, number);
  if (signalCount.fetch_add(1) + 1 >= kImpatient) {
    _exit(static_cast<int>(ExitCode::kSignalBase) + number);
  }
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(wakeFd.load(), &one, sizeof one);
  errno = errnoBefore;
}

}  // namespace

Interrupts::Interrupts() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (fd_ < 0) {
    throw Failure(ExitCode::kSetup, std::string("no event descriptor: ") + std::strerror(errno));
  }
  wakeFd = fd_;
  for (std::size_t i = 0; i < kTouched.size(); ++i) {
    sigaction(kTouched[i], nullptr, &actionsBefore[i]);
  }
  struct sigaction ending {};
  ending.sa_handler = onSignal;
  ending.sa_flags = SA_RESTART;
  sigemptyset(&ending.sa_mask);
  for (std::size_t i = 0; i < kEnding.size(); ++i) {
    // What is ignored stays so: nohup, and jobs in the background of a shell without job control.
    if (actionsBefore[i].sa_handler != SIG_IGN) sigaction(kEnding[i], &ending, nullptr);
  }
  struct sigaction ignoring {};
  ignoring.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignoring, nullptr);
}

Interrupts::~Interrupts() {
  restoreDefaults();
  wakeFd = -1;
  ::close(fd_);
}

void Interrupts::restoreDefaults() {
  for (std::size_t i = 0; i < kTouched.size(); ++i) {
    sigaction(kTouched[i], &actionsBefore[i], nullptr);
  }
}

bool Interrupts::requested() const {
  return firstSignal != 0;
}

void Interrupts::check() const {
  if (const int number = firstSignal; number != 0) throw Interrupted{number};
}

void Interrupts::sleep(std::uint32_t milliseconds) const {
  static_cast<void>(waitReadable(-1, milliseconds));
}

bool Interrupts::waitReadable(int other, std::uint32_t milliseconds) const {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (true) {
    check();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    std::array<pollfd, 2> watched{pollfd{fd_, POLLIN, 0}, pollfd{other, POLLIN, 0}};
    const int ready = ::poll(watched.data(), watched.size(), left > 0 ? static_cast<int>(left) : 0);
    check();
    if (ready > 0 && watched[1].revents != 0) return true;
    if (left <= 0) return false;
  }
}

}  // namespace robotctl
