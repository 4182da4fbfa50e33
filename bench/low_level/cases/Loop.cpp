// A control loop at 1 kHz with the virtual robot: commands that got lost, how regular it is, and
// what it takes of the processor.

#include <algorithm>
#include <cstdio>

#include "harness/ProcStat.h"
#include "low_level/cases/LowLevelCases.h"
#include "shared_memory/cases/Counted.h"

namespace bench {
namespace {

constexpr std::uint32_t kHertz = 1000;
constexpr std::uint32_t kPeriodUs = 1'000'000 / kHertz;
constexpr double kInTimeUs = 1500;

struct Run {
  std::vector<double> periodsUs;
  double processorPercent = 0;  // of a core, the looping thread's
  double wholePercent = 0;      // the process's
  Json::Value answer;

  [[nodiscard]] double inTimePercent() const {
    const auto inTime = std::ranges::count_if(periodsUs, [](double us) { return us <= kInTimeUs; });
    return 100.0 * static_cast<double>(inTime) / static_cast<double>(periodsUs.size());
  }
};

Run run(Child& child, std::uint32_t passes) {
  constexpr std::uint32_t kPiece = 10'000;
  constexpr std::uint32_t kSpareMs = 60'000;
  Run run;
  const double before = child.ask(command("usage"))["cpuNs"].asDouble();
  run.answer = child.ask(object({{"do", "loop"}, {"count", passes}, {"intervalUs", kPeriodUs}}),
                         passes * kPeriodUs / 1000 + kSpareMs);
  const double used = child.ask(command("usage"))["cpuNs"].asDouble() - before;
  const double wallNs = run.answer["wallNs"].asDouble();
  run.processorPercent = 100 * run.answer["cpuNs"].asDouble() / wallNs;
  run.wholePercent = 100 * used / wallNs;
  for (std::uint32_t from = 0; from < passes; from += kPiece) {
    const Json::Value piece = object({{"do", "periods"}, {"from", from}, {"count", kPiece}});
    append(run.periodsUs, child.ask(piece)["ns"], kUsPerNs);
  }
  return run;
}

}  // namespace

std::vector<Row> measureLoop(const Plan& plan) {
  const std::uint32_t passes = plan.of(1U, plan.soakSeconds, plan.soakSeconds) * kHertz;
  Child bareLoop = startRole("bare-loop", Json::Value(Json::objectValue));
  const Run bare = run(bareLoop, std::max(passes / 10, kHertz));

  Child robot = startRole("board-robot", Json::Value(Json::objectValue));
  Child client = startRole("joint-holder", object({{"observedHz", kHertz}}));
  const pid_t robotId[] = {robot.pid()};
  const double robotBefore = cpuSecondsOf(robotId);
  const Run ours = run(client, passes);
  const double robotPercent = 100 * (cpuSecondsOf(robotId) - robotBefore) * kHertz / passes;
  const Json::Value records = robot.ask(command("records"));
  const auto refused = ours.answer["refused"].asUInt();
  const double lost = static_cast<double>(passes - refused) - records["commands"].asDouble();

  char note[200];
  Row lostRow = counted(rowOf("low.loop.lost", "commands lost at 1 kHz", "", "count"), lost, 0.0);
  std::snprintf(note, sizeof note,
                "%u passes; refused by the client %u, by the robot %u; numbers left out %u; "
                "records that didn't come within 5 ms %u",
                passes, refused, records["refused"].asUInt(), records["lost"].asUInt(),
                ours.answer["unanswered"].asUInt());
  lostRow.note = note;
  Row inTime = rowOf("low.loop.in_time", "periods within 1.5 ms", "loop that only sleeps", "%");
  inTime.oursFigures = Figures::of({ours.inTimePercent()});
  inTime.baselineFigures = Figures::of({bare.inTimePercent()});
  inTime.p50 = Comparison{ours.inTimePercent(), std::nullopt, Comparison::Kind::kValue};
  std::snprintf(note, sizeof note, "%.3f; its %.3f", ours.inTimePercent(), bare.inTimePercent());
  inTime.note = note;
  Row period = compare(rowOf("low.loop.period", "period", "loop that only sleeps", "us"),
                       ours.periodsUs, bare.periodsUs, std::nullopt, std::nullopt);
  std::snprintf(note, sizeof note, "longest %.0f; its longest %.0f, of a tenth of the time",
                period.oursFigures->max, period.baselineFigures->max);
  period.note = note;
  Row processor =
      rowOf("low.loop.processor", "the loop's processor share", "loop that only sleeps", "%");
  processor.oursFigures = Figures::of({ours.processorPercent});
  processor.baselineFigures = Figures::of({bare.processorPercent});
  processor.p50 = Comparison{ours.processorPercent, std::nullopt, Comparison::Kind::kValue};
  std::snprintf(note, sizeof note, "the client's whole process %.2f, the virtual robot's %.1f",
                ours.wholePercent, robotPercent);
  processor.note = note;
  return {lostRow, inTime, period, processor};
}

}  // namespace bench
