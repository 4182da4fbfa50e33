#include "doctor/SharedMemory.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/Text.h"
#include "doctor/Processes.h"
#include "orvane/RobotSdk/Records.h"
#include "pbase/CShmTripleBuffer.h"
#include "pbase/CTime.h"

namespace robotctl::doctor {
namespace {

using Pexal::Memory::CShmTripleBuffer;
using Pexal::PBase::CTime;

constexpr char kDirectory[] = "/dev/shm";
constexpr char kPrefix[] = "orvane.";
constexpr mode_t kBufferMode = 0644;
constexpr mode_t kChannelMode = 0600;
constexpr std::uint64_t kFreshMs = 1000;
constexpr std::uint32_t kLookMs = 20;

struct BufferRow {
  const char* name;
  std::uint32_t recordSize;
};
constexpr BufferRow kBuffers[] = {
    {"motion_observed", sizeof(orvane::RobotSdk::ObservedMotionRecord)},
    {"motion_sensor_observed", sizeof(orvane::RobotSdk::ObservedSensorRecord)},
};

std::string pathOf(const std::string& name) {
  return std::string(kDirectory) + '/' + kPrefix + name;
}

std::string quoted(const std::string& path) {
  return "'" + printable(path) + "'";
}

Finding checkDirectory() {
  Finding finding{"shm.directory", Verdict::kOk, kDirectory, "can be read and written", {}, {}};
  if (::access(kDirectory, R_OK | W_OK | X_OK) == 0) return finding;
  finding.verdict = Verdict::kProblem;
  finding.seen = std::strerror(errno);
  finding.meaning = "neither observed state nor motor commands can pass";
  finding.cure = "sudo mount -o remount,rw,mode=1777 /dev/shm";
  return finding;
}

/// What the platform's rule (owner, kind, mode) has against an object; false: nothing.
bool isRefused(const std::string& path, mode_t mode, Finding& finding) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return false;
  const auto refuse = [&](const std::string& seen, const std::string& cure) {
    finding.verdict = Verdict::kProblem;
    finding.seen = seen;
    finding.cure = cure;
    return true;
  };
  const std::string remove = "sudo rm " + quoted(path) + "    # then start its writer again";
  if (!S_ISREG(status.st_mode)) return refuse("not a plain file", remove);
  if (status.st_uid != ::geteuid() && status.st_uid != 0) {
    return refuse("belongs to " + userText(status.st_uid),
                  "run applications as the motion process's user: sudo -u '#" +
                      std::to_string(status.st_uid) + "' ...");
  }
  const mode_t actual = status.st_mode & 07777;
  if (actual != mode) {
    return refuse(format("unreadable: its mode is %04o, not %04o", actual, mode),
                  format("sudo chmod %04o %s", mode, quoted(path).c_str()));
  }
  if (::access(path.c_str(), R_OK) != 0) {
    return refuse("unreadable: " + std::string(std::strerror(errno)),
                  "run applications as the motion process's user: sudo -u '#" +
                      std::to_string(status.st_uid) + "' ...");
  }
  return false;
}

std::string writerText(const std::string& path) {
  const LockState lock = lockStateOf(path + "+lock");
  return lock.held() ? "written by " + lock.holders.front().describe() : "its writer has ended";
}

bool becomesNewer(CShmTripleBuffer& buffer, const Interrupts& interrupts) {
  const std::uint64_t first = buffer.latestSeq();
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kFreshMs;
  while (CTime::getCurrentMilliSecond() < deadline) {
    if (buffer.latestSeq() != first) return true;
    interrupts.sleep(kLookMs);
  }
  return false;
}

class BufferCheck {
 public:
  BufferCheck(bool robotAnswers, const Interrupts& interrupts, LogCapture& log)
      : robotAnswers_(robotAnswers), interrupts_(interrupts), log_(log) {}

  [[nodiscard]] Finding check(const BufferRow& row) const {
    const std::string path = pathOf(row.name);
    Finding finding{"shm.buffer", Verdict::kOk, row.name, {}, {}, {}};
    if (::access(path.c_str(), F_OK) != 0) return missing(std::move(finding));
    finding.meaning = "connect() can't open it, so control is never obtained";
    if (isRefused(path, kBufferMode, finding)) return finding;
    CShmTripleBuffer buffer;
    static_cast<void>(log_.take());
    if (!buffer.open(row.name, true)) return spoilt(std::move(finding), path);
    if (buffer.recordSize() != row.recordSize) {
      finding.verdict = Verdict::kProblem;
      finding.seen = format("of another version: its records have %u bytes, this library's %u",
                            buffer.recordSize(), row.recordSize);
      finding.cure = "install the library of the robot's version";
      return finding;
    }
    return fresh(std::move(finding), buffer, path);
  }

 private:
  [[nodiscard]] Finding missing(Finding finding) const {
    // Without a robot that is its consequence, and said already.
    finding.verdict = robotAnswers_ ? Verdict::kProblem : Verdict::kWarning;
    finding.seen = "missing";
    finding.meaning = "nobody has written it: control is never obtained";
    finding.cure = "start the board's motion process again; in a sandbox: virtual-robot --board &";
    return finding;
  }

  [[nodiscard]] Finding spoilt(Finding finding, const std::string& path) const {
    const auto lines = log_.take();
    finding.verdict = Verdict::kProblem;
    finding.seen = lines.empty() ? "unreadable" : "unreadable: " + printable(lines.back());
    finding.cure = "sudo rm " + quoted(path) + "    # then start the motion process again";
    return finding;
  }

  [[nodiscard]] Finding fresh(Finding finding, CShmTripleBuffer& buffer,
                              const std::string& path) const {
    finding.seen = format("record %llu, %s", static_cast<unsigned long long>(buffer.latestSeq()),
                          writerText(path).c_str());
    finding.meaning.clear();
    if (becomesNewer(buffer, interrupts_)) return finding;
    finding.verdict = Verdict::kWarning;
    finding.seen += ", and no newer one comes";
    finding.meaning = "observed state stands still";
    finding.cure = "start the board's motion process again";
    return finding;
  }

  const bool robotAnswers_;
  const Interrupts& interrupts_;
  LogCapture& log_;
};

/// The channels' files: "orvane.DOMAIN:CHANNEL".
std::vector<std::string> channels() {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(kDirectory), &::closedir);
  if (stream == nullptr) return names;
  while (const dirent* const entry = ::readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name.starts_with(kPrefix) && name.find(':') != std::string::npos &&
        name.find('+') == std::string::npos) {
      names.push_back(name.substr(sizeof kPrefix - 1));
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

Finding checkChannel(const std::string& name) {
  const std::string path = pathOf(name);
  Finding finding{"shm.channel", Verdict::kOk, "channel " + printable(name), {}, {}, {}};
  finding.meaning = "motor commands don't pass";
  if (isRefused(path, kChannelMode, finding)) return finding;
  finding.meaning.clear();
  finding.seen = writerText(path);
  return finding;
}

}  // namespace

Findings checkSharedMemory(bool robotAnswers, const Interrupts& interrupts, LogCapture& log) {
  Findings findings{checkDirectory()};
  if (findings.front().verdict == Verdict::kProblem) return findings;
  const BufferCheck buffers(robotAnswers, interrupts, log);
  for (const BufferRow& row : kBuffers) findings.push_back(buffers.check(row));
  for (const std::string& name : channels()) findings.push_back(checkChannel(name));
  return findings;
}

}  // namespace robotctl::doctor
