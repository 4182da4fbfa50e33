#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Who runs on this machine, as far as /proc tells this user.
namespace robotctl::doctor {

struct Process {
  pid_t pid = 0;
  std::string name;
  char state = '?';  ///< 'T' stopped, 'Z' ended

  /// "joint_loop (process 812)", printable.
  [[nodiscard]] std::string describe() const;
};

/// Those of that name that haven't ended.
[[nodiscard]] std::vector<Process> processesNamed(const std::string& name);

/// Who holds the flock on a file. Found out by reading alone: nobody who tries to take it meanwhile
/// is disturbed.
struct LockState {
  std::vector<Process> holders;  ///< who has the locked descriptor open; who took it comes first
  bool takerAlive = false;       ///< the one who took it is among them

  [[nodiscard]] bool held() const { return !holders.empty(); }
};
[[nodiscard]] LockState lockStateOf(const std::string& path);

/// "uid 1000 (anna)".
[[nodiscard]] std::string userText(uid_t user);

}  // namespace robotctl::doctor
