#include "app/StatusLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <utility>

#include "pbase/CTime.h"

namespace orvane::robot {
namespace {

constexpr const char* kEraseLine = "\r\033[K";
constexpr std::size_t kUsualWidth = 80;
constexpr std::uint64_t kNewsMs = 10'000;  // so long a refusal is told

std::size_t terminalWidth() {
  winsize size{};
  const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return known ? size.ws_col : kUsualWidth;
}

/// Names and reasons partly come from the network: nothing of them may steer the terminal.
std::string printable(std::string text) {
  for (char& c : text) {
    if (std::isprint(static_cast<unsigned char>(c)) == 0) c = '?';
  }
  return text;
}

/// In whole `unit`s, and never the "-0" of something that rounds to none.
double rounded(double value, double unit) {
  return std::round(value / unit) * unit + 0.0;
}

/// What makes a new line in a pipe worth while.
std::string keyOf(const RobotStatus& status) {
  return std::string(nameOf(status.posture)) + '\n' + status.controller + '\n' +
         std::to_string(status.session.id) + '\n' + nameOf(status.session.motors) + '\n' +
         std::to_string(static_cast<int>(status.simulation.records.lastRefusal)) + '\n' +
         nameOf(status.audio.state) + '\n' + status.audio.name + '\n' +
         std::to_string(status.lastRefusal.atMs);
}

/// What came of the commands to the motors.
std::string describeRecords(const RecordCounts& records) {
  std::string line = ", " + std::to_string(records.commands) + " commands, " +
                     std::to_string(records.refused) + " refused";
  if (records.lost > 0) line += ", " + std::to_string(records.lost) + " lost";
  if (records.lastRefusal == RecordFate::kTaken) return line;
  return line + " (" + textOf(records.lastRefusal) + ')';
}

std::string describeSession(const SessionStatus& session) {
  char text[128];
  std::snprintf(text, sizeof(text), ", low level %.40s (%.1f s), drive %s", session.holder.c_str(),
                static_cast<double>(session.remainingMs) / 1000,
                session.driveOn ? nameOf(session.motors) : "off");
  return text + describeRecords(session.records);
}

std::string describeSimulation(const SimulationStatus& simulation) {
  const RecordCounts& records = simulation.records;
  if (!simulation.active && records.commands + records.refused == 0) return {};
  return std::string(", low level over DDS ") + (simulation.active ? "following" : "free") +
         describeRecords(records);
}

std::string describeAudio(const AudioStatus& audio) {
  char text[128];
  std::snprintf(text, sizeof(text), ", %s %.64s (%.1f of %.1f s)", nameOf(audio.state),
                audio.name.c_str(), static_cast<double>(audio.positionMs) / 1000,
                static_cast<double>(audio.lengthMs) / 1000);
  return text;
}

}  // namespace

StatusLine::StatusLine(std::string deviceId, bool terminal)
    : deviceId_(std::move(deviceId)), terminal_(terminal) {}

void StatusLine::show(const RobotStatus& status) {
  if (terminal_) {
    const std::string line = describe(status).substr(0, terminalWidth() - 1);
    std::printf("%s%s", kEraseLine, line.c_str());
    std::fflush(stdout);
    return;
  }
  std::string key = keyOf(status);
  if (key == shown_) return;
  shown_ = std::move(key);
  std::printf("%s\n", describe(status).c_str());
  std::fflush(stdout);
}

void StatusLine::finish() {
  if (terminal_) std::printf("\n");
  std::fflush(stdout);
}

/// What matters first, for a terminal cuts the line.
std::string StatusLine::describe(const RobotStatus& status) const {
  std::string line = deviceId_ + ": " + nameOf(status.posture);
  char text[256];
  if (status.controller.empty()) {
    line += ", control free";
  } else {
    std::snprintf(text, sizeof(text), ", control %.40s (%.1f s)", status.holder.c_str(),
                  static_cast<double>(status.remainingMs) / 1000);
    line += text;
  }
  if (status.session.id != 0) line += describeSession(status.session);
  line += describeSimulation(status.simulation);
  std::snprintf(text, sizeof(text), ", %.2f m/s %+.2f rad/s, at %.2f %.2f m %.0f deg, %.1f%%",
                std::hypot(status.velocity.x, status.velocity.y),
                rounded(status.velocity.yaw, 0.01), rounded(status.position[0], 0.01),
                rounded(status.position[1], 0.01), rounded(status.yaw * 180 / M_PI, 1),
                status.chargePercent);
  line += text;
  if (status.audio.state != Player::State::kStopped) line += describeAudio(status.audio);
  const bool isNews =
      Pexal::PBase::CTime::getCurrentMilliSecond() < status.lastRefusal.atMs + kNewsMs;
  if (!status.lastRefusal.method.empty() && isNews) {
    line += ", last refused " + status.lastRefusal.method + ": " + status.lastRefusal.refusal.text;
  }
  return printable(std::move(line));
}

}  // namespace orvane::robot
