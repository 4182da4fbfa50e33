#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace sdk_test {

/// A child process whose standard output and error are read along. Ended (SIGKILL) and waited for
/// at the latest when this is destroyed, or when the thread that made this ends. Used by one
/// thread.
class Process {
 public:
  /// `command`: path of the program, then its arguments.
  explicit Process(const std::vector<std::string>& command);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// After SIGSTOP it stands still when this returns.
  void signal(int number) const;
  /// Waits until the output so far contains `text`. False: it didn't, or the process ended without.
  [[nodiscard]] bool says(const std::string& text, std::uint32_t limitMs);
  [[nodiscard]] std::string output() const;
  /// From now on `output` and `says` mean what comes later.
  void forgetOutput();
  /// Exit status of the process, -N when signal N ended it; nothing: it still runs at the limit.
  /// When it has ended, so has its output.
  [[nodiscard]] std::optional<int> finish(std::uint32_t limitMs);

 private:
  [[nodiscard]] bool ended();

  pid_t pid_ = -1;
  std::optional<int> status_;
  int pipe_ = -1;
  mutable std::mutex mutex_;  // guards output_
  std::string output_;
  std::atomic<bool> drained_{false};  // the pipe has ended
  std::thread reader_;
};

}  // namespace sdk_test
