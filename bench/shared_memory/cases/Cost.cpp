// System calls and allocations per write, counted: by ptrace, and by the preloaded library.

#include "shared_memory/cases/Counted.h"
#include "shared_memory/cases/ShmCases.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 1000;

struct Costs {
  Cost awake;
  Cost asleep;
  Cost alone;
};

/// `lonely`: the writer of a channel without a reader.
Costs costsOf(Ends ends, Child lonely, const Plan& plan) {
  const std::uint32_t count = plan.of(50U, 500U, 500U);
  return {costWhileAwake(ends, marked(kPending, 0)), costOf(ends.writer, marked(count, kPeriodUs)),
          costOf(lonely, marked(count, 0))};
}

}  // namespace

std::vector<Row> measureCost(const Plan& plan) {
  const Child::Environment counting = {{"LD_PRELOAD", BENCH_ALLOCATIONS}};
  const Costs ours =
      costsOf(startOwn("cost", counting),
              startRole("own-writer", object({{"channel", "cost.alone"}}), counting), plan);
  std::optional<Costs> peer;
  if (const auto iceoryx = Iceoryx::start()) {
    peer = costsOf(iceoryx->ends("cost", counting), iceoryx->lonelyWriter("alone", counting), plan);
  }
  struct Line {
    const char* calls;
    const char* allocations;
    const char* systemCallsId;
    const char* allocationsId;
    Cost Costs::*cost;
    std::optional<double> wantedCalls;
  };
  const Line lines[] = {
      {"system calls per write, no reader", "allocations per write, no reader",
       "shm.system_calls.alone", "shm.allocations.alone", &Costs::alone, 0.0},
      {"system calls per write, reader busy", "allocations per write, reader busy",
       "shm.system_calls.awake", "shm.allocations.awake", &Costs::awake, 0.0},
      {"system calls per write, reader asleep", "allocations per write, reader asleep",
       "shm.system_calls.asleep", "shm.allocations.asleep", &Costs::asleep, std::nullopt}};
  std::vector<Row> rows;
  const auto add = [&](Row row, const Line& line, double Cost::*part,
                       std::optional<double> wanted) {
    row = counted(std::move(row), ours.*line.cost.*part, wanted);
    if (peer) {
      row.baselineFigures = Figures::of({(*peer).*line.cost.*part});
    } else {
      row.note = kNoIceoryx;
    }
    rows.push_back(std::move(row));
  };
  const char* const listener = "iceoryx, listener";
  for (const Line& line : lines) {
    add(rowOf(line.systemCallsId, line.calls, listener, "count"), line, &Cost::systemCalls,
        line.wantedCalls);
    add(rowOf(line.allocationsId, line.allocations, listener, "count"), line, &Cost::allocations,
        0.0);
  }
  return rows;
}

}  // namespace bench
