#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "test_support.h"

namespace platform_test {

/// A running peer_program; killed at the latest when this goes, or the thread that made this: a
/// test that crashes leaves none behind.
class PeerProcess {
 public:
  explicit PeerProcess(std::vector<std::string> words) {
    words.insert(words.begin(), {kStarter, "--pdeathsig", "KILL", PEER_PROGRAM});
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (posix_spawn(&process_, kStarter, nullptr, nullptr, arguments.data(), environ) != 0) {
      throw std::runtime_error("no peer");
    }
  }
  ~PeerProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

  void signal(int number) const { kill(process_, number); }
  /// Waits until it has stopped itself.
  [[nodiscard]] bool stopped() const {
    int status = 0;
    return waitUntil([&] { return waitpid(process_, &status, WUNTRACED | WNOHANG) == process_; }) &&
           WIFSTOPPED(status);
  }
  /// Waits until it has ended.
  [[nodiscard]] bool ended() const {
    siginfo_t end{};
    return waitUntil([&] {
      return waitid(P_PID, process_, &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
             end.si_pid == process_;
    });
  }

 private:
  static constexpr const char* kStarter = "/usr/bin/setpriv";

  pid_t process_ = -1;
};

}  // namespace platform_test
