// What a virtual robot takes of a processor as a process of its own that publishes to a client, by
// the body that it has; and how its time goes, by its own account.

#include <array>
#include <cstdio>
#include <string>

#include "RobotSettings.h"
#include "cases/HostCases.h"
#include "harness/Clock.h"
#include "harness/ProcStat.h"

namespace bench {
namespace {

constexpr const char* kDevice = "BENCH-BODY";
constexpr const char* kLastWords = "real-time factor ";
constexpr double kMostPercent = 60;

struct Share {
  double percent = 0;  // of a core
  double samples = 0;  // of motion, a second, at its client
  std::string words;   // its own about its whole life
};

Share measure(const char* body, const char* doing, std::uint32_t settleMs, std::uint32_t ms) {
  Share share;
  Child robot = startRobot(kDevice, body);
  {
    const std::array processes = {robot.pid()};
    Child walker = startRole("sdk-walker", object({{"device", kDevice}}));
    Json::Value does = command(doing);
    does["ms"] = settleMs;
    static_cast<void>(walker.ask(does));
    does["ms"] = ms;
    const double before = cpuSecondsOf(processes);
    const std::int64_t from = nowNs();
    const Json::Value answer = walker.ask(does, 2 * ms + 60'000);
    const double seconds = static_cast<double>(nowNs() - from) / 1e9;
    share.percent = 100 * (cpuSecondsOf(processes) - before) / seconds;
    share.samples = answer["samples"].asDouble() / seconds;
  }
  share.words = robot.lastWords(kLastWords);
  return share;
}

Row rowOfShare(const char* id, const char* text, const char* doing, const Plan& plan) {
  Row row = rowOf(id, text, "kinematic", "% of a core");
  if (!orvane::robot::kHasPhysics) {
    row.note = "built without MuJoCo";
    return row;
  }
  const std::uint32_t settleMs = plan.of(200U, 2000U, 2000U);
  const std::uint32_t ms = plan.of(1000U, 10'000U, 60'000U);
  const Share ours = measure("physics", doing, settleMs, ms);
  const Share baseline = measure("kinematic", doing, settleMs, ms);
  row.oursFigures = Figures::of({ours.percent});
  row.baselineFigures = Figures::of({baseline.percent});
  row.p50 = Comparison{ours.percent, kMostPercent, Comparison::Kind::kValue};
  char samples[60];
  std::snprintf(samples, sizeof samples, "; %.0f motion samples a second", ours.samples);
  row.note = ours.words + samples;
  return row;
}

}  // namespace

std::vector<Row> measureBodyProcess(const Plan& plan) {
  return {rowOfShare("body.process.standing", "physics, a process, standing", "stand", plan),
          rowOfShare("body.process.walking", "the same, walking", "walk", plan)};
}

}  // namespace bench
