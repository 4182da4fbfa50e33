#include "core/Robot.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include "core/Documents.h"
#include "core/Errors.h"
#include "core/Explanation.h"
#include "core/RobotShared.h"
#include "core/Text.h"

namespace robotctl {
namespace {

using orvane::RobotSdk::IMotionHighLevelClient;
using orvane::RobotSdk::MotorLayout;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kNotAcquired = 2;
constexpr std::uint32_t kReleaseMs = 5000;
constexpr std::uint32_t kAttemptMs = 4000;  // an attempt to take control that is under way
constexpr std::uint32_t kExplainMs = 1000;
constexpr std::uint32_t kPostureTickMs = 100;
constexpr std::uint32_t kDeadEndMs = 500;

}  // namespace

// ------------------------------------------------------------------------- connection and control

void Robot::connect(RobotCallbacks callbacks, std::uint32_t leaseMs) {
  if (name_.empty()) find();
  client_ = onBoard() ? IMotionHighLevelClient::create(context_.options.boardMaster)
                      : IMotionHighLevelClient::create(deviceNo_);
  if (!client_) throw Failure(ExitCode::kSetup, "no client could be made for " + name_);
  client_->setConnectCallback([shared = shared_, further = std::move(callbacks.state)](
                                  std::uint32_t state, std::uint32_t code) {
    {
      const std::lock_guard lock(shared->mutex);
      shared->state = {state, code};
    }
    shared->wake();
    if (further) further(state, code);
  });
  if (callbacks.event) client_->setEventCallback(std::move(callbacks.event));
  if (callbacks.motion) client_->setMotionObservedCallback(std::move(callbacks.motion));
  if (callbacks.sensor) client_->setSensorObservedCallback(std::move(callbacks.sensor));
  {
    const std::lock_guard lock(shared_->mutex);
    shared_->state = {1, 0};
  }
  if (!client_->connect(leaseMs)) fail("connect");
  const Json::Value state = motionState();
  if (onBoard()) deviceNo_ = textAt(state, "deviceNo");
}

void Robot::enableStreams(bool motion, bool sensor) {
  Json::Value wish;
  wish["motionEnable"] = motion;
  wish["sensorEnable"] = sensor;
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  const std::string text = Json::writeString(compact, wish);
  request("setMotionObservedEnable", [&](Client& client, std::uint32_t timeoutMs) {
    std::string accepted;
    return client.setMotionObservedEnable(text, &accepted, timeoutMs);
  });
}

void Robot::take(Waiting waiting) {
  const std::uint32_t limitMs = context_.options.controlMs;
  if (const std::string holder = describeHolder(motionState()); !holder.empty()) {
    if (waiting == Waiting::kStillMoving) {
      context_.output.warning("NOT stopped yet: " + holder + " holds control of " + name_ +
                              "; Ctrl-C there, or the robot's own switch");
    }
    context_.output.note("Control of " + name_ + " is held by " + holder + "; waiting up to " +
                         duration(limitMs) + " for it ...");
  } else {
    context_.output.note("Taking control of " + name_ + " ...");
  }
  {
    const std::lock_guard lock(shared_->mutex);
    shared_->state = {1, 0};  // what came before doesn't count
  }
  shared_->drain();
  const auto begin = Clock::now();
  if (!client_->takeMotionControl(limitMs)) fail("takeMotionControl");
  while (state() == State{1, 0}) {
    const std::uint64_t passed = msSince(begin);
    const std::uint64_t limit = limitMs + kAttemptMs;
    if (passed >= limit) break;
    const auto left = static_cast<std::uint32_t>(limit - passed);
    if (context_.interrupts.waitReadable(shared_->fd, left)) shared_->drain();
  }
  if (!inControl()) fail("takeMotionControl", msSince(begin), kNotAcquired);
  controls_ = true;
}

void Robot::release() {
  check();
  controls_ = false;
  if (!client_->releaseMotionControl()) fail("releaseMotionControl");
  const auto begin = Clock::now();
  while (inControl()) {
    const std::uint64_t passed = msSince(begin);
    if (passed >= kReleaseMs) {
      throw Failure(ExitCode::kNoAnswer,
                    "control of " + name_ + " wasn't given back within " + duration(kReleaseMs),
                    "it ends with its lease");
    }
    const auto left = static_cast<std::uint32_t>(kReleaseMs - passed);
    if (context_.interrupts.waitReadable(shared_->fd, left)) shared_->drain();
  }
  walking_ = false;
}

Robot::State Robot::state() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->state;
}

int Robot::changedFd() const {
  return shared_->fd;
}

void Robot::drainChanged() {
  shared_->drain();
}

void Robot::check() {
  context_.interrupts.check();
  if (!controls_) return;
  const auto [now, code] = state();
  if (now == 2) return;
  controls_ = false;
  FailedRequest lost{"keeping control", code, name_, programName_, 0, stateForExplanation()};
  Failure why = explained(lost);
  const std::string situationNow = situation(lost.motionState);
  throw Failure(ExitCode::kNoControl,
                "control of " + name_ + " was lost: " + errorText(code) +
                    (situationNow.empty() ? "" : "; " + situationNow),
                why.hint())
      .with(why.details());
}

// -------------------------------------------------------------------------------------- requests

void Robot::request(const char* name, const Call& call) {
  check();
  const auto begin = Clock::now();
  if (!call(*client_, context_.options.timeoutMs)) fail(name, msSince(begin));
}

Json::Value Robot::query(const char* name, const Query& call) {
  std::string text;
  request(name,
          [&](Client& client, std::uint32_t timeoutMs) { return call(client, &text, timeoutMs); });
  return parseObject(text, "what " + name_ + " answers to " + name);
}

Json::Value Robot::motionState() {
  return query("queryMotionState", [](Client& client, std::string* out, std::uint32_t timeoutMs) {
    return client.queryMotionState(out, timeoutMs);
  });
}

Json::Value Robot::systemStatus() {
  return query("getSystemStatus", [](Client& client, std::string* out, std::uint32_t timeoutMs) {
    return client.getSystemStatus(out, timeoutMs);
  });
}

Json::Value Robot::capabilities() {
  return query("getMotionCapabilities",
               [](Client& client, std::string* out, std::uint32_t timeoutMs) {
                 return client.getMotionCapabilities(out, timeoutMs);
               });
}

MotorLayout Robot::motorLayout() {
  MotorLayout layout{};
  request("getMotorLayout", [&](Client& client, std::uint32_t timeoutMs) {
    return client.getMotorLayout(&layout, timeoutMs);
  });
  return layout;
}

void Robot::walk(float forward, float left, float turn) {
  // Before the request: also one that isn't answered may have begun something.
  walking_ = true;
  request("velocityMove", [&](Client& client, std::uint32_t timeoutMs) {
    return client.velocityMove(forward, left, turn, timeoutMs);
  });
}

void Robot::stop() {
  request("stopMotionAction", [](Client& client, std::uint32_t timeoutMs) {
    return client.stopMotionAction(timeoutMs);
  });
  walking_ = false;
}

void Robot::waitForPosture(const std::string& posture, std::uint32_t limitMs) {
  static constexpr std::array<std::string_view, 4> kDeadEnds{"emergencyStop", "damped", "lowLevel",
                                                             "fallen"};
  waitWhile(
      [&](const std::string& now, std::uint64_t passed) {
        const bool deadEnd = std::find(kDeadEnds.begin(), kDeadEnds.end(), now) != kDeadEnds.end();
        return now != posture && !(deadEnd && passed >= kDeadEndMs);
      },
      posture, limitMs);
}

void Robot::waitUntilStopped(std::uint32_t limitMs) {
  waitWhile(
      [](const std::string& now, std::uint64_t) { return now == "walking" || now == "stopping"; },
      "", limitMs);
}

void Robot::waitWhile(const std::function<bool(const std::string&, std::uint64_t)>& goesOn,
                      const std::string& wanted, std::uint32_t limitMs) {
  const auto begin = Clock::now();
  while (true) {
    const Json::Value document = motionState();
    const std::string now = textAt(document, "posture");
    const std::uint64_t passed = msSince(begin);
    const bool waiting = !now.empty() && goesOn(now, passed);
    if (!waiting) {
      if (now.empty() || wanted.empty() || now == wanted) return;
      throw Failure(ExitCode::kRefused, name_ + " isn't " + wanted + "; " + situation(document),
                    "robotctl recover stands up from any pose");
    }
    if (passed >= limitMs) {
      throw Failure(ExitCode::kNoAnswer,
                    name_ + " isn't " + (wanted.empty() ? "standing still" : wanted) + " after " +
                        duration(limitMs) + "; " + situation(document),
                    "robotctl status tells what it does");
    }
    pause(kPostureTickMs);
  }
}

void Robot::pause(std::uint32_t milliseconds) {
  const auto begin = Clock::now();
  for (std::uint64_t passed = 0; passed < milliseconds; passed = msSince(begin)) {
    check();
    const auto left = static_cast<std::uint32_t>(milliseconds - passed);
    if (context_.interrupts.waitReadable(shared_->fd, left)) shared_->drain();
  }
  check();
}

Json::Value Robot::stateForExplanation() const {
  std::string text;
  const std::uint32_t limit = std::min(context_.options.timeoutMs, kExplainMs);
  try {
    if (client_->queryMotionState(&text, limit)) return parseObject(text, "the motion state");
  } catch (const std::exception&) {
    // An explanation without it is still one.
  }
  return {};
}

void Robot::fail(const char* name, std::uint64_t waitedMs, std::uint32_t untold) {
  const std::uint32_t told = client_->getLastError();
  const std::uint32_t code = told != 0 ? told : untold;  // "no error" is no cause of a failure
  FailedRequest failed{name, code, name_, programName_, waitedMs, {}};
  if (code != 1 && code != 3) failed.motionState = stateForExplanation();
  throw explained(failed);
}

}  // namespace robotctl
