#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "core/Failure.h"
#include "core/Robot.h"

/// Inside of Robot only.
namespace robotctl {

inline std::uint64_t msSince(std::chrono::steady_clock::time_point begin) {
  const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - begin);
  return static_cast<std::uint64_t>(passed.count());
}

/// What the library's callbacks bring. They hold it by shared_ptr, so that it outlives them.
struct Robot::Shared {
  Shared() : fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd < 0) {
      throw Failure(ExitCode::kSetup, std::string("no event descriptor: ") + std::strerror(errno));
    }
  }
  ~Shared() { ::close(fd); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  void wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
  }
  void drain() const {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(fd, &count, sizeof count);
  }

  const int fd;
  mutable std::mutex mutex;  // guards everything below; a leaf
  std::map<std::string, std::string> answers;
  State state{0, 0};
  std::string lastProblem;  // of the library's log
};

}  // namespace robotctl
