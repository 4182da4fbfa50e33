#include "doctor/RealTime.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "core/Text.h"
#include "pbase/CConfigLoader.h"

namespace robotctl::doctor {
namespace {

constexpr unsigned kIpcLock = 14;  // capabilities(7)
constexpr unsigned kSysNice = 23;
constexpr int kHighest = 99;
constexpr char kLimitsFile[] = "/etc/security/limits.d/90-robot.conf";

std::string firstLine(const std::string& path) {
  std::string text;
  if (!Pexal::Config::CConfigLoader::readFile(path, text)) return {};
  return text.substr(0, text.find('\n'));
}

bool hasCapability(unsigned number) {
  std::string text;
  if (!Pexal::Config::CConfigLoader::readFile("/proc/self/status", text)) return false;
  const std::size_t at = text.find("CapEff:");
  if (at == std::string::npos) return false;
  const unsigned long long set = std::strtoull(text.c_str() + at + 7, nullptr, 16);
  return (set >> number & 1) != 0;
}

rlim_t limitOf(__rlimit_resource resource) {
  rlimit limit{};
  return ::getrlimit(resource, &limit) == 0 ? limit.rlim_cur : 0;
}

/// What `attempt` gives in a child: 0 or an errno value.
int tryInChild(const std::function<int()>& attempt) {
  const pid_t child = ::fork();
  if (child < 0) return errno;
  if (child == 0) ::_exit(attempt());
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
}

std::string forGood(const char* item, const char* value) {
  return format("echo \"$USER - %s %s\" | sudo tee -a %s    # then log in again", item, value,
                kLimitsFile);
}

Finding checkPriority() {
  const rlim_t limit = limitOf(RLIMIT_RTPRIO);
  const bool nice = hasCapability(kSysNice);
  const int most = nice ? kHighest : static_cast<int>(std::min<rlim_t>(limit, kHighest));
  const int tried = std::max(most, 1);
  const int error = tryInChild([tried] {
    sched_param parameter{};
    parameter.sched_priority = tried;
    return ::sched_setscheduler(0, SCHED_FIFO, &parameter) == 0 ? 0 : errno;
  });
  Finding finding{"realtime.priority", Verdict::kOk, "real-time priority", {}, {}, {}};
  const std::string rights =
      format("limit %s, CAP_SYS_NICE %s",
             limit == RLIM_INFINITY ? "none" : std::to_string(limit).c_str(), nice ? "yes" : "no");
  if (error == 0) {
    finding.seen = format("up to %d (%s)", tried, rights.c_str());
    return finding;
  }
  finding.verdict = Verdict::kWarning;
  finding.seen = format("refused: %s (%s)", std::strerror(error), rights.c_str());
  finding.meaning = "the threads of a control loop run late when the machine is busy";
  finding.cure = most == 0 ? forGood("rtprio", "99")
                           : "sudo sysctl kernel.sched_rt_runtime_us=950000    # in a container: "
                             "docker run --cap-add SYS_NICE --ulimit rtprio=99";
  return finding;
}

Finding checkMemory() {
  const rlim_t limit = limitOf(RLIMIT_MEMLOCK);
  // The system call itself: the sanitizers put a function in the library's place that does nothing.
  // The right is the same for pages that are there and for all, which would have to be filled
  // first.
  constexpr int kWhatIsThere = MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT;
  const int error =
      tryInChild([] { return ::syscall(SYS_mlockall, kWhatIsThere) == 0 ? 0 : errno; });
  Finding finding{"realtime.memory", Verdict::kOk, "locked memory", {}, {}, {}};
  const std::string rights =
      (limit == RLIM_INFINITY
           ? std::string("no limit")
           : format("limit %llu KiB", static_cast<unsigned long long>(limit) / 1024)) +
      (hasCapability(kIpcLock) ? ", CAP_IPC_LOCK yes" : "");
  if (error == 0) {
    finding.seen = "allowed (" + rights + ')';
    return finding;
  }
  finding.verdict = Verdict::kWarning;
  finding.seen = format("refused: %s (%s)", std::strerror(error), rights.c_str());
  finding.meaning = "a control loop may wait for memory that was swapped out";
  finding.cure = forGood("memlock", "unlimited");
  return finding;
}

Finding checkKernel(bool onBoard) {
  utsname names{};
  ::uname(&names);
  const std::string version = names.version;
  const bool realTime =
      firstLine("/sys/kernel/realtime") == "1" || version.find("PREEMPT_RT") != std::string::npos;
  const bool preemptible = version.find("PREEMPT") != std::string::npos;
  const char* const kind = realTime ? "PREEMPT_RT"
                           : version.find("PREEMPT_DYNAMIC") != std::string::npos
                               ? "PREEMPT_DYNAMIC"
                           : preemptible ? "PREEMPT"
                                         : "no preemption";
  Finding finding{"realtime.kernel",
                  Verdict::kOk,
                  "kernel",
                  printable(names.release) + std::string(", ") + kind,
                  {},
                  {}};
  if (!onBoard || preemptible) return finding;
  finding.verdict = Verdict::kWarning;
  finding.meaning = "a control loop may run milliseconds late";
  finding.cure = "sudo apt install linux-image-rt-$(dpkg --print-architecture)";
  return finding;
}

Finding checkGovernor(bool onBoard) {
  const std::string governor =
      printable(firstLine("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor"));
  Finding finding{"realtime.governor",
                  Verdict::kOk,
                  "processor governor",
                  governor.empty() ? "not visible here" : governor,
                  {},
                  {}};
  if (!onBoard || governor.empty() || governor == "performance") return finding;
  finding.verdict = Verdict::kWarning;
  finding.meaning = "the processors slow down between two cycles of a control loop";
  finding.cure =
      "echo performance | sudo tee /sys/devices/system/cpu/cpu*/cpufreq/scaling_governor";
  return finding;
}

}  // namespace

Findings checkRealTime(bool onBoard) {
  return {checkPriority(), checkMemory(), checkKernel(onBoard), checkGovernor(onBoard)};
}

}  // namespace robotctl::doctor
