#include "ControlLoop.h"

#include <mutex>
#include <utility>

#include "pbase/CTime.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

constexpr double kStepSeconds = ControlLoop::kPeriodUs / 1e6;
constexpr std::uint64_t kMostCaughtUpUs = 50'000;

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
  BodyState seen;
  for (std::uint32_t count = 0;; ++count) {
    {
      RobotCore::Access robot = core_.access();
      robot.step(kStepSeconds);
      seen = robot.body();
    }
    const bool withSensors = count % kStepsPerSensorSample == 0;
    for (Publisher* publisher : publishers_) publisher->publish(seen, withSensors);
    deadlineUs += kPeriodUs;
    const std::uint64_t nowUs = CTime::getCurrentMicroSecond();
    if (nowUs > deadlineUs + kMostCaughtUpUs) deadlineUs = nowUs;
    if (waitUntil(deadlineUs)) return;
  }
}

bool ControlLoop::waitUntil(std::uint64_t deadlineUs) {
  std::unique_lock lock(mutex_);
  return stopAsked_.waitUntil(lock, deadlineUs, [this] { return stopping_; });
}

}  // namespace orvane::robot
