#include "doctor/Processes.h"

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>

#include "core/Text.h"

namespace robotctl::doctor {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void forEachEntry(const std::string& directory,
                  const std::function<void(const std::string&)>& take) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(directory.c_str()), &::closedir);
  if (stream == nullptr) return;
  while (const dirent* const entry = ::readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (!name.empty() && std::isdigit(static_cast<unsigned char>(name.front())) != 0) take(name);
  }
}

/// Nothing when there is no such process.
std::optional<Process> processOf(pid_t pid) {
  const std::string text = contentOf("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return {};
  if (close + 2 >= text.size()) return {};
  return Process{pid, text.substr(open + 1, close - open - 1), text[close + 2]};
}

struct FileLock {
  pid_t taker = 0;  ///< 0: unknown, or it has ended
};

/// One line of /proc/locks or of a descriptor's information:
/// "1: FLOCK  ADVISORY  WRITE 812 00:2f:1234 0 EOF".
std::optional<FileLock> lockIn(const std::string& line, const struct stat& file) {
  const std::size_t begin = line.find("FLOCK");
  if (begin == std::string::npos || line.find("->") != std::string::npos) return {};
  std::istringstream words(line.substr(begin));
  std::string kind;
  std::string mode;
  std::string access;
  std::string inode;
  FileLock lock;
  if (!(words >> kind >> mode >> access >> lock.taker >> inode)) return {};
  const std::size_t colon = inode.rfind(':');
  if (colon == std::string::npos) return {};
  const bool same = std::strtoull(inode.c_str() + colon + 1, nullptr, 10) == file.st_ino;
  return same ? std::optional(lock) : std::nullopt;
}

bool isOnDevice(const std::string& line, const struct stat& file) {
  return line.find(format(" %02x:%02x:", major(file.st_dev), minor(file.st_dev))) !=
         std::string::npos;
}

/// The lock that one of a process's descriptors holds on the file.
std::optional<FileLock> lockHeldBy(const std::string& pid, const struct stat& file) {
  std::optional<FileLock> result;
  const std::string process = "/proc/" + pid;
  forEachEntry(process + "/fd", [&](const std::string& descriptor) {
    struct stat open {};
    if (::stat((process + "/fd/" + descriptor).c_str(), &open) != 0) return;
    if (open.st_ino != file.st_ino || open.st_dev != file.st_dev) return;
    std::istringstream lines(contentOf(process + "/fdinfo/" + descriptor));
    for (std::string line; std::getline(lines, line);) {
      if (auto lock = lockIn(line, file)) result = lock;
    }
  });
  return result;
}

}  // namespace

std::string Process::describe() const {
  return printable(name) + " (process " + std::to_string(pid) + ')';
}

std::vector<Process> processesNamed(const std::string& name) {
  std::vector<Process> result;
  forEachEntry("/proc", [&](const std::string& pid) {
    const auto process = processOf(std::atoi(pid.c_str()));
    if (process && process->name == name && process->state != 'Z') result.push_back(*process);
  });
  return result;
}

LockState lockStateOf(const std::string& path) {
  LockState state;
  struct stat file {};
  if (::stat(path.c_str(), &file) != 0) return state;
  const auto add = [&](pid_t pid, const FileLock& lock) {
    const auto process = processOf(pid);
    if (!process) return;
    const bool took = lock.taker == pid;
    state.takerAlive |= took;
    state.holders.insert(took ? state.holders.begin() : state.holders.end(), *process);
  };
  forEachEntry("/proc", [&](const std::string& pid) {
    if (const auto lock = lockHeldBy(pid, file)) add(std::atoi(pid.c_str()), *lock);
  });
  if (state.held()) return state;
  // Another user's descriptors can't be looked at; the system's list names who took a lock.
  std::istringstream lines(contentOf("/proc/locks"));
  for (std::string line; std::getline(lines, line);) {
    const auto lock = lockIn(line, file);
    if (lock && lock->taker > 0 && isOnDevice(line, file)) add(lock->taker, *lock);
  }
  return state;
}

std::string userText(uid_t user) {
  const passwd* const entry = ::getpwuid(user);
  const std::string number = "uid " + std::to_string(user);
  return entry == nullptr ? number : number + " (" + printable(entry->pw_name) + ')';
}

}  // namespace robotctl::doctor
