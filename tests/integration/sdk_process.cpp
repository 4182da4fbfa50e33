#include "sdk_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "sdk_support.h"

namespace sdk_test {

Process::Process(const std::vector<std::string>& command) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  pipe_ = ends[0];
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  std::vector<char*> arguments;
  // The kernel ends the child with the thread that starts it: a test that crashes leaves none
  // behind.
  for (const char* word : {"/usr/bin/setpriv", "--pdeathsig", "KILL"}) {
    arguments.push_back(const_cast<char*>(word));
  }
  for (const auto& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const int error = posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) {
    close(pipe_);
    throw std::runtime_error("can't start " + command.front());
  }
  reader_ = std::thread([this] {
    std::array<char, 4096> chunk;
    for (ssize_t size = 0; (size = read(pipe_, chunk.data(), chunk.size())) > 0;) {
      const std::lock_guard lock(mutex_);
      output_.append(chunk.data(), static_cast<std::size_t>(size));
    }
    drained_ = true;
  });
}

Process::~Process() {
  if (!ended()) {
    kill(pid_, SIGKILL);
    static_cast<void>(finish(kLimitMs));
  }
  reader_.join();  // the pipe has ended with the process
  close(pipe_);
}

void Process::signal(int number) const {
  if (kill(pid_, number) != 0 || number != SIGSTOP) return;
  // It stops when one of its threads is told so, which may take a while on a busy machine.
  siginfo_t stopped{};
  static_cast<void>(waitUntil([&] {
    return waitid(P_PID, static_cast<id_t>(pid_), &stopped,
                  WSTOPPED | WEXITED | WNOHANG | WNOWAIT) != 0 ||
           stopped.si_pid == pid_;
  }));
}

bool Process::says(const std::string& text, std::uint32_t limitMs) {
  const auto said = [&] { return output().find(text) != std::string::npos; };
  static_cast<void>(waitUntil([&] { return said() || finish(0); }, limitMs));
  return said();
}

std::string Process::output() const {
  const std::lock_guard lock(mutex_);
  return output_;
}

void Process::forgetOutput() {
  const std::lock_guard lock(mutex_);
  output_.clear();
}

std::optional<int> Process::finish(std::uint32_t limitMs) {
  // What an ended process wrote may still be on its way through the pipe. A child of its own that
  // outlives it may hold that open.
  if (waitUntil([this] { return ended(); }, limitMs)) {
    static_cast<void>(waitUntil([this] { return drained_.load(); }, 2000));
  }
  return status_;
}

bool Process::ended() {
  if (status_) return true;
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) != pid_) return false;
  status_ = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  return true;
}

}  // namespace sdk_test
