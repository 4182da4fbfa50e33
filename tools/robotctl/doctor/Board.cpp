#include "doctor/Board.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "doctor/Processes.h"
#include "pbase/System.h"

namespace robotctl::doctor {
namespace {

constexpr char kMarker[] = "/tmp/iox-unique-roudi_ready.lock";
constexpr char kDaemon[] = "iox-roudi";
constexpr char kLockFile[] = "/tmp/orvane_motion_sdk.lock";

Finding checkDaemon() {
  Finding finding{"board.daemon", Verdict::kOk, "shared-memory daemon", {}, {}, {}};
  const auto running = processesNamed(kDaemon);
  const bool marked = Pexal::PBase::File::exist(kMarker);
  if (!running.empty() && marked) {
    finding.seen = running.front().describe() + ", ready";
  } else if (!running.empty()) {
    finding.verdict = Verdict::kProblem;
    finding.seen = running.front().describe() + " runs, but " + kMarker + " is missing";
    finding.meaning = "the library waits for that file and then doesn't start";
    finding.cure = std::string("touch ") + kMarker + "    # once the daemon says it is ready";
  } else if (marked) {
    finding.verdict = Verdict::kWarning;
    finding.seen = std::string(kMarker) + " is there, but no " + kDaemon + " runs";
    finding.meaning = "a daemon that ended left its marker; applications start without it";
    finding.cure = std::string("rm ") + kMarker + " && " + kDaemon + " &";
  } else {
    finding.verdict = Verdict::kProblem;
    finding.seen = std::string("no ") + kDaemon + " runs, and " + kMarker + " is missing";
    finding.meaning = "the library waits for the daemon and then doesn't start";
    finding.cure = std::string(kDaemon) + " &    # then, when it is ready: touch " + kMarker;
  }
  return finding;
}

std::string removal(const struct stat& status) {
  const bool own = status.st_uid == ::geteuid();
  return (own ? "rm -r " : "sudo rm -r ") + std::string(kLockFile);
}

Finding checkHolder(Finding finding, const LockState& lock) {
  const Process& holder = lock.holders.front();
  const std::string number = std::to_string(holder.pid);
  if (!lock.takerAlive) {
    finding.verdict = Verdict::kProblem;
    finding.seen = "stale: who took it has ended, and " + holder.describe() + " inherited it";
    finding.meaning = "no application can use the library on this board";
    finding.cure = "kill " + number;
  } else if (holder.state == 'T' || holder.state == 't') {
    finding.verdict = Verdict::kProblem;
    finding.seen = "stale: held by " + holder.describe() + ", which is stopped";
    finding.meaning = "no other application can use the library on this board";
    finding.cure = "kill -CONT " + number + "    # or end it: kill -KILL " + number;
  } else {
    finding.verdict = Verdict::kWarning;
    finding.seen = "held by " + holder.describe();
    finding.meaning = "one application at a time: another one's initial() fails";
    finding.cure = "kill " + number + "    # if it is to make room";
  }
  return finding;
}

Finding checkLock() {
  Finding finding{"board.lock", Verdict::kOk, "application lock", {}, {}, {}};
  struct stat status {};
  if (::lstat(kLockFile, &status) != 0) {
    finding.seen = "free";
    return finding;
  }
  const auto stale = [&](const std::string& what) {
    finding.verdict = Verdict::kProblem;
    finding.seen = "stale: " + std::string(kLockFile) + ' ' + what;
    finding.meaning = "the library can't open it and doesn't start";
    finding.cure = removal(status);
  };
  if (!S_ISREG(status.st_mode)) {
    stale("isn't a plain file");
    return finding;
  }
  const LockState lock = lockStateOf(kLockFile);
  if (lock.held()) return checkHolder(std::move(finding), lock);
  if (::access(kLockFile, W_OK) != 0) {
    stale("was left by " + userText(status.st_uid) + ", and this user can't write to it");
    return finding;
  }
  finding.seen = "free; an earlier application left its file, which the next one takes";
  return finding;
}

}  // namespace

Findings checkBoard() {
  return {checkDaemon(), checkLock()};
}

}  // namespace robotctl::doctor
