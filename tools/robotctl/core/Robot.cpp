#include "core/Robot.h"

#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <map>
#include <mutex>
#include <string_view>

#include "core/Documents.h"
#include "core/RobotShared.h"
#include "core/Text.h"

namespace robotctl {
namespace {

using orvane::RobotSdk::IMotionSdkService;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kWarning = 3;
constexpr std::uint32_t kOthersMs = 1000;  // for further robots, when the first has answered
constexpr std::size_t kMostRobots = 1000;
constexpr std::uint32_t kLastStopMs = 1000;  // in the destructor

/// Whoever wonders who has the robot finds machine and process.
std::string ownName() {
  std::array<char, HOST_NAME_MAX + 1> host{};
  if (::gethostname(host.data(), host.size() - 1) != 0) host[0] = '\0';
  return "robotctl@" + std::string(host.data()).substr(0, 40) + ":" + std::to_string(::getpid());
}

void requireInterface(const std::string& name) {
  if (::if_nametoindex(name.c_str()) != 0) return;
  std::string known;
  if (struct if_nameindex* const all = ::if_nameindex(); all != nullptr) {
    for (const struct if_nameindex* one = all; one->if_index != 0; ++one) {
      known += (known.empty() ? "" : ", ") + std::string(one->if_name);
    }
    ::if_freenameindex(all);
  }
  throw Failure(ExitCode::kSetup, "this machine has no network interface '" + printable(name) + "'",
                "it has " + known);
}

std::string where(const CommonOptions& options) {
  if (options.interface.empty()) return "on the interface that DDS chose";
  return "on interface " + options.interface;
}

std::string names(const std::vector<FoundRobot>& robots) {
  std::string text;
  for (const FoundRobot& robot : robots) {
    text += (text.empty() ? "" : ", ") + printable(robot.deviceNo);
  }
  return text;
}

const FoundRobot* named(const std::vector<FoundRobot>& robots, const std::string& deviceNo) {
  const auto found = std::find_if(robots.begin(), robots.end(), [&](const FoundRobot& robot) {
    return robot.deviceNo == deviceNo;
  });
  return found != robots.end() ? &*found : nullptr;
}

}  // namespace

// --------------------------------------------------------------------------------------- service

Robot::Robot(Context& context)
    : context_(context),
      service_(IMotionSdkService::instance()),
      shared_(std::make_shared<Shared>()),
      programName_(ownName()) {
  try {
    startService();
    refuseWrongOptions();
  } catch (...) {
    close();  // the destructor doesn't run
    throw;
  }
}

Robot::~Robot() {
  close();
}

void Robot::startService() {
  const CommonOptions& options = context_.options;
  if (!options.interface.empty()) requireInterface(options.interface);
  service_->attachLoggerCallback([shared = shared_, verbose = options.verbose](
                                     std::uint32_t level, const char* text, int size) {
    const std::string_view record(text, static_cast<std::size_t>(size));
    if (verbose) Output::log(record);
    if (level < kWarning) return;
    const std::lock_guard lock(shared->mutex);
    shared->lastProblem = record;
  });
  service_->attachRobotDiscoverCallback(
      [shared = shared_](const std::string& deviceNo, const std::string& detail) {
        {
          const std::lock_guard lock(shared->mutex);
          // Bounded, whatever the network brings.
          const bool room = shared->answers.size() < kMostRobots;
          if (room || shared->answers.count(deviceNo) > 0) shared->answers[deviceNo] = detail;
        }
        shared->wake();
      });
  if (!options.interface.empty()) service_->setNetworkInterface(options.interface.c_str());
  const std::uint32_t daemonSeconds = (options.findMs + 999) / 1000;
  started_ = service_->initial(options.config.c_str(), programName_.c_str(), daemonSeconds);
  if (started_) return;
  const std::lock_guard lock(shared_->mutex);
  throw Failure(
      ExitCode::kSetup,
      "the library can't start: " + printable(shared_->lastProblem.substr(
                                        0, shared_->lastProblem.find_last_not_of('\n') + 1)),
      "robotctl doctor looks at this machine");
}

void Robot::refuseWrongOptions() const {
  const CommonOptions& options = context_.options;
  if (!onBoard() && options.boardMaster) {
    throw Failure(ExitCode::kUsage, "--board-master is for a robot's board, and this isn't one",
                  "leave it out; on the board itself it commands through the brain board");
  }
  if (onBoard() && !(options.robot.empty() && options.interface.empty())) {
    throw Failure(ExitCode::kUsage,
                  "this is a robot's board, which has one robot; --robot and --interface (or "
                  "ROBOTCTL_ROBOT, ROBOTCTL_INTERFACE) don't go with it");
  }
}

bool Robot::onBoard() const {
  return !service_->isMultiDevice();
}

void Robot::close() noexcept {
  try {
    if (client_) {
      const bool held = controls_ && inControl();
      const bool stopped =
          !walking_ || !inControl() ||
          client_->stopMotionAction(std::min(context_.options.timeoutMs, kLastStopMs));
      if (!stopped) {
        context_.output.warning(name_ +
                                " didn't answer the last stop; a walk that isn't refreshed "
                                "is braked within a second by itself");
      }
      client_->disconnect();  // gives control back
      if (held && stopped && context_.interrupts.requested()) {
        context_.output.note(name_ + ": " + (walking_ ? "stopped; " : "") + "control given back");
      }
      client_.reset();
    }
    if (started_) service_->shutdown();
  } catch (...) {
    // Out of memory on the way out: the library's own hook at exit does the rest.
  }
  started_ = false;
}

// --------------------------------------------------------------------------------------- finding

std::vector<FoundRobot> Robot::discover(
    std::uint32_t windowMs, const std::function<bool(const std::vector<FoundRobot>&)>& done) {
  if (onBoard()) {
    throw Failure(ExitCode::kUsage, "nothing is discovered on a robot's board: it has one robot",
                  "robotctl info and robotctl status tell about it");
  }
  {
    const std::lock_guard lock(shared_->mutex);
    shared_->answers.clear();
  }
  if (!service_->discoverRobotDevice(windowMs)) {
    const std::lock_guard lock(shared_->mutex);
    throw Failure(ExitCode::kSetup,
                  "robots can't be looked for " + where(context_.options) + ": " +
                      printable(shared_->lastProblem),
                  "robotctl doctor looks at this machine");
  }
  const auto collected = [&] {
    std::map<std::string, std::string> answers;
    {
      const std::lock_guard lock(shared_->mutex);
      answers = shared_->answers;
    }
    std::vector<FoundRobot> robots;
    for (const auto& [deviceNo, detail] : answers) {
      FoundRobot robot{deviceNo, {}};
      try {
        if (!detail.empty()) robot.detail = parseObject(detail, "its description");
      } catch (const Failure&) {
        // A robot that describes itself in no object is one nevertheless.
      }
      robots.push_back(std::move(robot));
    }
    return robots;
  };
  const auto begin = Clock::now();
  while (true) {
    const std::uint64_t passed = msSince(begin);
    const bool over = passed >= windowMs;
    const bool answered = !over && context_.interrupts.waitReadable(
                                       shared_->fd, windowMs - static_cast<std::uint32_t>(passed));
    if (answered) shared_->drain();
    if (!answered && !over) continue;
    std::vector<FoundRobot> robots = collected();
    if (over || (done && done(robots))) return robots;
  }
}

Failure Robot::noRobot(const CommonOptions& options, const std::vector<FoundRobot>& others) {
  const std::string wanted =
      options.robot.empty() ? "no robot" : "robot " + printable(options.robot);
  std::string hint = "is it on? --interface names the network it is on (a virtual robot's is lo)";
  if (!others.empty()) hint = "these answered: " + names(others);
  return Failure(ExitCode::kNoRobot,
                 wanted + (options.robot.empty() ? " answered" : " didn't answer") + " within " +
                     duration(options.findMs) + " " + where(options),
                 hint);
}

void Robot::find() {
  const CommonOptions& options = context_.options;
  if (onBoard()) {
    name_ = "this board's robot";
    return;
  }
  std::vector<FoundRobot> robots = discover(options.findMs, [&](const auto& answered) {
    return options.robot.empty() ? !answered.empty() : named(answered, options.robot) != nullptr;
  });
  if (robots.empty()) throw noRobot(options, robots);
  const FoundRobot* chosen = named(robots, options.robot);
  if (options.robot.empty()) {
    // The first has answered; there may be others.
    for (FoundRobot& other : discover(kOthersMs)) {
      if (named(robots, other.deviceNo) == nullptr) robots.push_back(std::move(other));
    }
    std::sort(robots.begin(), robots.end(), [](const FoundRobot& one, const FoundRobot& other) {
      return one.deviceNo < other.deviceNo;
    });
    if (robots.size() > 1) {
      throw Failure(ExitCode::kNoRobot, "several robots answered: " + names(robots),
                    "--robot says which one is meant");
    }
    chosen = &robots.front();
  }
  if (chosen == nullptr) throw noRobot(options, robots);
  deviceNo_ = chosen->deviceNo;
  detail_ = chosen->detail;
  name_ = "robot " + printable(deviceNo_);
}

}  // namespace robotctl
