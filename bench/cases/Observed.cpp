// A sample's way from the robot's write to the application, against a raw reader of the same topic.
// The two are attached in turn, so that neither is served after the other.

#include <optional>
#include <stdexcept>

#include "cases/HostCases.h"

namespace bench {
namespace {

constexpr const char* kDevice = "BENCH-OBS";
constexpr double kBlockedLimit = 1.1;
/// Allocations per sample below this are no allocations per sample, but background.
constexpr double kNoAllocation = 0.01;

struct Side {
  Child child;
  std::vector<double> us;
  std::vector<double> allocations;        // per sample, process
  std::vector<double> threadAllocations;  // per sample, receiving thread

  void collect(std::uint32_t count) {
    static_cast<void>(child.ask(command("attach")));
    Json::Value collecting = command("collect");
    collecting["count"] = count;
    const Json::Value answer = child.ask(collecting);
    append(us, answer["ns"], kUsPerNs);
    allocations.push_back(answer["allocations"].asDouble());
    threadAllocations.push_back(answer["threadAllocations"].asDouble());
    static_cast<void>(child.ask(command("detach")));
  }

  void collectUncounted(std::uint32_t count) {
    collect(count);
    us.clear();
    allocations.clear();
    threadAllocations.clear();
  }
};

/// Both sides in turn, after one round that isn't counted.
void collectInTurn(Side& ours, Side& raw, std::uint32_t rounds, std::uint32_t count) {
  for (Side* const side : {&ours, &raw}) side->collectUncounted(count);
  for (std::uint32_t round = 0; round < rounds; ++round) {
    Side* const order[] = {round % 2 == 0 ? &ours : &raw, round % 2 == 0 ? &raw : &ours};
    for (Side* const side : order) side->collect(count);
  }
}

std::vector<Side> startSides(const Child::Environment& environment) {
  std::vector<Side> sides;
  sides.push_back(
      {startRole("sdk-observer", object({{"device", kDevice}}), environment), {}, {}, {}});
  sides.push_back(
      {startRole("raw-observer", object({{"domain", kHostDomain}}), environment), {}, {}, {}});
  return sides;
}

Row latency(const Plan& plan) {
  auto sides = startSides({});
  collectInTurn(sides[0], sides[1], plan.of(2U, 20U, 60U), plan.of(100U, 500U, 1000U));
  return compare(rowOf("observed.motion.raw", "motion sample, write to callback",
                       "raw reader, wait-set thread", "us"),
                 sides[0].us, sides[1].us, 1.15, 1.3);
}

Row allocationRow(Row row, const std::vector<double>& ours, const std::vector<double>& raw,
                  std::optional<double> wanted) {
  row.oursFigures = Figures::of(ours);
  row.baselineFigures = Figures::of(raw);
  row.p50 = Comparison{row.oursFigures->p50 - row.baselineFigures->p50, wanted,
                       Comparison::Kind::kDifference};
  return row;
}

/// With the counting library in the process.
std::vector<Row> allocations(const Plan& plan) {
  Row process = rowOf("observed.allocations", "allocations per sample, whole process",
                      "raw reader, wait-set thread", "count");
  Row thread = rowOf("observed.thread_allocations", "allocations per sample, receiving thread",
                     "raw reader, wait-set thread", "count");
  auto sides = startSides({{"LD_PRELOAD", BENCH_ALLOCATIONS}});
  collectInTurn(sides[0], sides[1], plan.of(1U, 5U, 10U), plan.of(200U, 2000U, 5000U));
  return {
      allocationRow(process, sides[0].allocations, sides[1].allocations, std::nullopt),
      allocationRow(thread, sides[0].threadAllocations, sides[1].threadAllocations, kNoAllocation)};
}

/// A motion callback that sleeps a second each time, against one that returns at once.
std::vector<Row> blockedCallback(const Plan& plan) {
  Child client = startRole("sdk-blocked", object({{"device", kDevice}}));
  struct {
    std::vector<double> sensor;
    std::vector<double> request;
  } figures[2];
  const std::uint32_t rounds = plan.of(1U, 8U, 30U);
  // One round of both isn't counted.
  for (std::uint32_t turn = 0; turn < 2 + 2 * rounds; ++turn) {
    const bool blocked = (turn + turn / 2) % 2 == 1;
    Json::Value measure = command("measure");
    measure["ms"] = plan.of(500U, 3000U, 3000U);
    measure["blocked"] = blocked;
    const Json::Value answer = client.ask(measure);
    if (blocked && answer["blockedCalls"].asUInt() == 0) {
      throw std::runtime_error("the motion callback that was to block hasn't been called");
    }
    if (turn < 2) continue;
    append(figures[blocked].sensor, answer["sensorNs"], kUsPerNs);
    append(figures[blocked].request, answer["requestNs"], kUsPerNs);
  }
  return {compare(rowOf("observed.blocked.sensor", "sensor sample, motion callback blocked",
                        "the same, not blocked", "us"),
                  figures[1].sensor, figures[0].sensor, kBlockedLimit, kBlockedLimit),
          compare(rowOf("observed.blocked.request", "request, motion callback blocked",
                        "the same, not blocked", "us"),
                  figures[1].request, figures[0].request, kBlockedLimit, kBlockedLimit)};
}

}  // namespace

std::vector<Row> measureObserved(const Plan& plan) {
  std::vector<Row> rows;
  {
    const Child robot =
        startRole("stand-in-robot", object({{"device", kDevice}, {"domain", kHostDomain}}));
    rows.push_back(latency(plan));
    for (Row& row : allocations(plan)) rows.push_back(std::move(row));
  }
  const Child robot = startRole(
      "stand-in-robot", object({{"device", kDevice}, {"domain", kHostDomain}, {"sensorEvery", 2}}));
  for (Row& row : blockedCallback(plan)) rows.push_back(std::move(row));
  return rows;
}

}  // namespace bench
