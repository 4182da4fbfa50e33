// The low-level client of an external host against libddsc doing the same: a motor command's write,
// and an observed sample's way from the simulator's write to whoever waits for it.

#include <stdexcept>

#include "cases/HostCases.h"
#include "pbase/CThread.h"

namespace bench {
namespace {

constexpr double kWanted = 1.1;
constexpr std::uint32_t kPaceUs = 1000;
constexpr std::uint32_t kMatchPollMs = 20;
constexpr std::uint32_t kMatchPolls = 500;

Json::Value onDomain() {
  return object({{"domain", kHostDomain}});
}

/// Both, with a simulator that hears both.
struct Commanders {
  explicit Commanders(const Child::Environment& environment = {})
      : simulator(startRole("simulator", onDomain())),
        ours(startRole("sdk-commander", onDomain(), environment)),
        raw(startRole("raw-commander", onDomain(), environment)) {
    for (std::uint32_t poll = 0; poll < kMatchPolls; ++poll) {
      if (simulator.ask(command("matched"))["writers"].asUInt() == 2) return;
      Pexal::PBase::CThread::sleep(kMatchPollMs);
    }
    throw std::runtime_error("the writers of motor commands aren't matched");
  }
  Child simulator;
  Child ours;
  Child raw;
};

Row publishRow(Commanders& sides, Row row, const Json::Value& run, std::uint32_t rounds) {
  Contender contenders[] = {{sides.ours, {}}, {sides.raw, {}}};
  interleave(contenders, run, rounds);
  return compare(std::move(row), scaled(contenders[0].ns, kUsPerNs),
                 scaled(contenders[1].ns, kUsPerNs), kWanted, std::nullopt);
}

Row allocationRow(const Plan& plan) {
  const Child::Environment counting{{"LD_PRELOAD", BENCH_ALLOCATIONS}};
  Commanders sides(counting);
  std::vector<double> counts[2];
  for (std::uint32_t round = 0; round <= plan.of(1U, 5U, 10U); ++round) {
    const Json::Value count =
        object({{"do", "allocations"}, {"count", plan.of(200U, 5000U, 20000U)}});
    const double both[] = {sides.ours.ask(count)["allocations"].asDouble(),
                           sides.raw.ask(count)["allocations"].asDouble()};
    for (std::size_t i = 0; i < 2 && round > 0; ++i) counts[i].push_back(both[i]);
  }
  Row row = rowOf("simulation.publish.allocations", "allocations per motor command",
                  "raw dds_write, sample ready", "count");
  row.oursFigures = Figures::of(counts[0]);
  row.baselineFigures = Figures::of(counts[1]);
  row.p50 = Comparison{row.oursFigures->p50 - row.baselineFigures->p50, 0.01,
                       Comparison::Kind::kDifference};
  return row;
}

/// One reader at a time, so that none is served after another.
void collect(Contender& side, std::uint32_t count, bool counted) {
  static_cast<void>(side.child.ask(command("attach")));
  const Json::Value answer = side.child.ask(object({{"do", "collect"}, {"count", count}}));
  if (counted) append(side.ns, answer["ns"], kUsPerNs);
  static_cast<void>(side.child.ask(command("detach")));
}

std::vector<Row> observedRows(const Plan& plan) {
  const Child simulator =
      startRole("simulator", object({{"domain", kHostDomain}, {"writes", true}}));
  Child ours = startRole("sdk-requirer", onDomain());
  Child raw = startRole("raw-requirer", onDomain());
  Child caller =
      startRole("raw-requirer", object({{"domain", kHostDomain}, {"callerPolls", true}}));
  Contender sides[] = {{ours, {}}, {raw, {}}, {caller, {}}};
  const std::uint32_t rounds = plan.of(2U, 20U, 60U);
  for (std::uint32_t round = 0; round <= rounds; ++round) {
    for (std::size_t i = 0; i < std::size(sides); ++i) {
      collect(sides[(round + i) % std::size(sides)], plan.of(100U, 500U, 1000U), round > 0);
    }
  }
  const char* const what = "observed sample, write to requireObserved";
  return {compare(rowOf("simulation.observed.raw", what, "raw reader polled at 1 ms, wakes caller",
                        "us"),
                  sides[0].ns, sides[1].ns, kWanted, std::nullopt),
          compare(rowOf("simulation.observed.raw_caller", what, "raw reader, caller polls at 1 ms",
                        "us"),
                  sides[0].ns, sides[2].ns, std::nullopt, std::nullopt)};
}

}  // namespace

std::vector<Row> measureSimulation(const Plan& plan) {
  std::vector<Row> rows;
  {
    Commanders sides;
    rows.push_back(publishRow(
        sides, rowOf("simulation.publish.raw", "motor command at 1 kHz", "raw dds_write", "us"),
        object({{"do", "run"}, {"count", plan.of(100U, 500U, 1000U)}, {"intervalUs", kPaceUs}}),
        plan.of(2U, 30U, 60U)));
    rows.push_back(publishRow(sides,
                              rowOf("simulation.publish.tight.raw", "motor command in a tight loop",
                                    "raw dds_write", "us"),
                              object({{"do", "run"}, {"count", plan.of(500U, 5000U, 5000U)}}),
                              plan.of(2U, 30U, 100U)));
  }
  rows.push_back(allocationRow(plan));
  for (Row& row : observedRows(plan)) rows.push_back(std::move(row));
  return rows;
}

}  // namespace bench
