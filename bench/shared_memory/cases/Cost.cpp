// System calls and allocations per write, counted: by ptrace, and by the preloaded library.

#include "harness/SystemCalls.h"
#include "shared_memory/cases/ShmCases.h"
#include "shared_memory/peers/Channel.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 1000;

struct Cost {
  double systemCalls = 0;
  double allocations = 0;
};

Cost costOf(Child& writer, std::uint32_t count, std::uint32_t intervalUs) {
  const Traced traced = countSystemCalls(
      writer, object({{"do", "marked"}, {"count", count}, {"intervalUs", intervalUs}}), count);
  return {static_cast<double>(traced.systemCalls) / count,
          traced.answer["allocations"].asDouble() / count};
}

/// With the reader busy in its callback.
Cost costWhileAwake(Ends& ends, std::uint32_t count) {
  static_cast<void>(
      ends.writer.ask(object({{"do", "write"}, {"count", 1}, {"kind", Message::kHold}})));
  static_cast<void>(ends.reader.ask(command("held")));
  const Cost cost = costOf(ends.writer, count, 0);
  static_cast<void>(ends.reader.ask(command("release")));
  return cost;
}

struct Costs {
  Cost awake;
  Cost asleep;
  Cost alone;
};

/// `lonely`: the writer of a channel without a reader.
Costs costsOf(Ends ends, Child lonely, const Plan& plan) {
  constexpr std::uint32_t kPending = 24;  // fewer than there are chunks
  const std::uint32_t count = plan.of(50U, 500U, 500U);
  return {costWhileAwake(ends, kPending), costOf(ends.writer, count, kPeriodUs),
          costOf(lonely, count, 0)};
}

Row counted(Row row, double ours, const double* baseline, std::optional<double> wanted) {
  row.oursFigures = Figures::of({ours});
  if (baseline != nullptr) {
    row.baselineFigures = Figures::of({*baseline});
  } else {
    row.note = kNoIceoryx;
  }
  row.p50 = Comparison{ours, wanted, Comparison::Kind::kValue};
  return row;
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
  for (const Line& line : lines) {
    const Cost* const theirs = peer ? &((*peer).*line.cost) : nullptr;
    rows.push_back(counted(rowOf(line.systemCallsId, line.calls, "iceoryx, listener", "count"),
                           (ours.*line.cost).systemCalls,
                           theirs != nullptr ? &theirs->systemCalls : nullptr, line.wantedCalls));
    rows.push_back(counted(
        rowOf(line.allocationsId, line.allocations, "iceoryx, listener", "count"),
        (ours.*line.cost).allocations, theirs != nullptr ? &theirs->allocations : nullptr, 0.0));
  }
  return rows;
}

}  // namespace bench
