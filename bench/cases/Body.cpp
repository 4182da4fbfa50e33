// What the robot's body costs: one step of 2 ms, and one second of a robot, for several bodies in
// turn in one process, all walking. The body with physics against the kinematic one.

#include <memory>

#include "BodyFactory.h"
#include "cases/HostCases.h"
#include "harness/Clock.h"
#include "motion/MotionLimits.h"

namespace bench {
namespace {

using namespace orvane::robot;

constexpr double kStep = 0.002;
constexpr int kStepsPerSecond = 500;
constexpr int kSettleSteps = 4 * kStepsPerSecond;  // stands up, and begins to walk

struct Costs {
  std::vector<double> stepUs;    // of one body
  std::vector<double> secondMs;  // of one body's second
};

/// `count` bodies of that kind, of which each makes a step before any makes the next.
class Bodies {
 public:
  Bodies(BodyKind kind, int count) {
    RobotSettings settings;
    settings.body = kind;
    for (int number = 0; number < count; ++number) {
      settings.seed = static_cast<std::uint32_t>(number) + 1;  // 0 has no noise
      bodies_.push_back(makeBody(settings));
    }
    command_.powered = true;
    command_.height = kBodyHeight.initial;
    command_.stepHeight = kStepHeight.initial;
    for (int step = 0; step < kSettleSteps; ++step) {
      command_.stepping = step > kSettleSteps / 2;
      command_.velocity = {0.3, 0.05, 0.3};
      for (const auto& body : bodies_) body->step(command_, kStep);
    }
  }

  [[nodiscard]] Costs walk(std::uint32_t seconds) {
    Costs costs;
    for (std::uint32_t second = 0; second < seconds; ++second) {
      const std::int64_t secondFrom = nowNs();
      for (int step = 0; step < kStepsPerSecond; ++step) {
        const std::int64_t from = nowNs();
        for (const auto& body : bodies_) body->step(command_, kStep);
        costs.stepUs.push_back(each(nowNs() - from) * kUsPerNs);
      }
      costs.secondMs.push_back(each(nowNs() - secondFrom) * kMsPerNs);
    }
    return costs;
  }

 private:
  [[nodiscard]] double each(std::int64_t ns) const {
    return static_cast<double>(ns) / static_cast<double>(bodies_.size());
  }

  std::vector<std::unique_ptr<Body>> bodies_;
  BodyCommand command_;
};

struct Fleet {
  int count;
  const char* stepId;
  const char* secondId;
  const char* stepText;
  const char* secondText;
};
constexpr Fleet kFleets[] = {
    {1, "body.step.1", "body.second.1", "physics, step of 2 ms", "physics, a robot's second"},
    {4, "body.step.4", "body.second.4", "the same, each of 4 bodies", "the same, each of 4 bodies"},
    {16, "body.step.16", "body.second.16", "the same, each of 16 bodies",
     "the same, each of 16 bodies"}};

}  // namespace

std::vector<Row> measureBody(const Plan& plan) {
  const std::uint32_t seconds = plan.of(1U, 10U, 60U);
  std::vector<Row> steps;
  std::vector<Row> whole;
  for (const Fleet& fleet : kFleets) {
    Row step = rowOf(fleet.stepId, fleet.stepText, "kinematic", "us");
    Row second = rowOf(fleet.secondId, fleet.secondText, "kinematic", "ms");
    if (kHasPhysics) {
      Bodies physical(BodyKind::kPhysics, fleet.count);
      Bodies kinematic(BodyKind::kKinematic, fleet.count);
      const Costs ours = physical.walk(seconds);
      const Costs baseline = kinematic.walk(seconds);
      step = compare(step, ours.stepUs, baseline.stepUs, std::nullopt, std::nullopt);
      second = compare(second, ours.secondMs, baseline.secondMs, std::nullopt, std::nullopt);
    } else {
      step.note = second.note = "built without MuJoCo";
    }
    steps.push_back(step);
    whole.push_back(second);
  }
  steps.insert(steps.end(), whole.begin(), whole.end());
  const std::vector<Row> processes = measureBodyProcess(plan);
  steps.insert(steps.end(), processes.begin(), processes.end());
  return steps;
}

}  // namespace bench
