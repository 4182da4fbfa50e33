#include "ControlLoop.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "pbase/CTime.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

constexpr std::uint64_t kMostCaughtUpUs = 50'000;

std::uint32_t periodUs(std::uint32_t sessionHz) {
  return sessionHz == 0 ? ControlLoop::kLongestPeriodUs
                        : std::min(ControlLoop::kLongestPeriodUs, 1'000'000 / sessionHz);
}

}  // namespace

ControlLoop::ControlLoop(RobotCore& core, std::vector<Publisher*> publishers)
    : core_(core),
      publishers_(std::move(publishers)),
      thread_("robot:loop", 0, 0, 0, [this] { run(); }) {}

void ControlLoop::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopAsked_.notifyAll();
  while (!thread_.isThreadOver()) CThread::sleep(1);
}

void ControlLoop::run() {
  std::uint64_t deadlineUs = CTime::getCurrentMicroSecond();
  const std::uint64_t beginUs = deadlineUs;
  std::uint64_t simulatedUs = 0;
  BodyState seen;
  for (;;) {
    std::uint32_t sessionHz = 0;
    std::uint32_t stepUs = 0;
    {
      RobotCore::Access robot = core_.access();
      if (const auto& session = robot.session().current()) sessionHz = session->observedHz;
      stepUs = periodUs(sessionHz);
      robot.step(stepUs / 1e6);
      seen = robot.body();
    }
    for (Publisher* publisher : publishers_) publisher->publish(seen, stepUs, sessionHz);
    deadlineUs += stepUs;
    const std::uint64_t nowUs = CTime::getCurrentMicroSecond();
    // Without this step, whose time passes until the next is due.
    note(nowUs > deadlineUs, simulatedUs, nowUs - beginUs);
    simulatedUs += stepUs;
    if (nowUs > deadlineUs + kMostCaughtUpUs) deadlineUs = nowUs;
    if (waitUntil(deadlineUs)) return;
  }
}

void ControlLoop::note(bool late, std::uint64_t simulatedUs, std::uint64_t passedUs) {
  steps_.fetch_add(1, std::memory_order_relaxed);
  if (late) lateSteps_.fetch_add(1, std::memory_order_relaxed);
  simulatedUs_.store(simulatedUs, std::memory_order_relaxed);
  passedUs_.store(passedUs, std::memory_order_relaxed);
}

Pace ControlLoop::pace() const {
  Pace pace;
  pace.steps = steps_.load(std::memory_order_relaxed);
  if (pace.steps < 2) return pace;
  pace.latePercent = 100.0 * static_cast<double>(lateSteps_.load(std::memory_order_relaxed)) /
                     static_cast<double>(pace.steps);
  const auto passed = static_cast<double>(passedUs_.load(std::memory_order_relaxed));
  const auto simulated = static_cast<double>(simulatedUs_.load(std::memory_order_relaxed));
  if (passed > 0) pace.realTimeFactor = simulated / passed;
  return pace;
}

bool ControlLoop::waitUntil(std::uint64_t deadlineUs) {
  std::unique_lock lock(mutex_);
  return stopAsked_.waitUntil(lock, deadlineUs, [this] { return stopping_; });
}

}  // namespace orvane::robot
