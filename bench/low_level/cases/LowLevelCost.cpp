// System calls and allocations of the control loop's operations, counted.

#include "low_level/cases/LowLevelCases.h"
#include "shared_memory/cases/Counted.h"
#include "shared_memory/cases/Side.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 1000;

Json::Value markedAsk(std::uint32_t count, std::uint32_t intervalUs) {
  Json::Value command = marked(count, intervalUs);
  command["do"] = "markedAsk";
  return command;
}

}  // namespace

std::vector<Row> measureLowLevelCost(const Plan& plan) {
  const std::uint32_t count = plan.of(50U, 500U, 500U);
  const std::uint32_t rounds = plan.of(1U, 20U, 20U);
  std::vector<Row> rows;
  const auto add = [&](const char* callsId, const char* calls, const char* allocationsId,
                       const char* allocations, const Cost& cost, std::optional<double> wanted) {
    rows.push_back(counted(rowOf(callsId, calls, "", "count"), cost.systemCalls, wanted));
    rows.push_back(counted(rowOf(allocationsId, allocations, "", "count"), cost.allocations, 0.0));
  };
  const auto awake = [&](Ends& ends, const Json::Value& operation) {
    Cost mean;
    for (std::uint32_t round = 0; round < rounds; ++round) {
      const Cost cost = costWhileAwake(ends, operation);
      mean.systemCalls += cost.systemCalls / rounds;
      mean.allocations += cost.allocations / rounds;
    }
    return mean;
  };
  Ends ends = startLowLevel({{"LD_PRELOAD", BENCH_ALLOCATIONS}});
  add("low.system_calls.publish.awake", "system calls per publishMotorAction, robot busy",
      "low.allocations.publish.awake", "allocations per publishMotorAction, robot busy",
      awake(ends, marked(kPending, 0)), 0.0);
  add("low.system_calls.observe.awake", "system calls per requireObserved, robot busy",
      "low.allocations.observe.awake", "allocations per requireObserved, robot busy",
      awake(ends, markedAsk(kPending, 0)), 0.0);
  add("low.system_calls.publish.asleep", "system calls per publishMotorAction, robot asleep",
      "low.allocations.publish.asleep", "allocations per publishMotorAction, robot asleep",
      costOf(ends.writer, marked(count, kPeriodUs)), std::nullopt);
  add("low.system_calls.observe.asleep", "system calls per requireObserved, robot asleep",
      "low.allocations.observe.asleep", "allocations per requireObserved, robot asleep",
      costOf(ends.writer, markedAsk(count, kPeriodUs)), std::nullopt);
  static_cast<void>(ends.reader.ask(command("leave")));
  static_cast<void>(ends.writer.ask(writing(1, 0, 1)));  // wakes who has left, once
  add("low.system_calls.publish.alone", "system calls per publishMotorAction, nobody reads",
      "low.allocations.publish.alone", "allocations per publishMotorAction, nobody reads",
      costOf(ends.writer, marked(count, 0)), 0.0);
  return rows;
}

}  // namespace bench
