// Requests and processor time with more and more robots in one namespace, each with a client of its
// own that asks at a fixed, modest rate.

#include <unistd.h>

#include <cstdio>
#include <optional>

#include "cases/HostCases.h"
#include "harness/Clock.h"
#include "harness/ProcStat.h"

namespace bench {
namespace {

constexpr std::uint32_t kSizes[] = {1, 2, 4, 8, 16, 32};
constexpr std::uint32_t kPerSecond = 20;
constexpr double kFlat = 1.3;
/// From here on the cores count as full.
constexpr double kFullPercent = 90;

struct Member {
  Child robot;
  Child client;
};

struct Load {
  std::size_t size = 0;  // robots
  std::vector<double> us;
  std::uint32_t failures = 0;
  double robotsPercent = 0;   // of one core, all robots together
  double clientsPercent = 0;  // likewise
  double busyPercent = 0;     // of the machine
};

Member startMember(std::size_t index) {
  const std::string device = "BENCH-" + std::to_string(index);
  return {startRobot(device), startRole("sdk-client", object({{"device", device}}))};
}

Load measure(std::vector<Member>& fleet, std::uint32_t seconds) {
  std::vector<pid_t> robots;
  std::vector<pid_t> clients;
  for (const Member& member : fleet) {
    robots.push_back(member.robot.pid());
    clients.push_back(member.client.pid());
  }
  Json::Value run = command("run");
  run["intervalUs"] = 1'000'000 / kPerSecond;
  run["count"] = seconds * kPerSecond;
  run["tolerant"] = true;

  const MachineTime before = machineTime();
  const double robotsBefore = cpuSecondsOf(robots);
  const double clientsBefore = cpuSecondsOf(clients);
  Load load;
  load.size = fleet.size();
  // Spread over the interval: in step, they would wait for each other and not for the robots.
  const std::int64_t apartNs = 1'000'000'000 / kPerSecond / static_cast<std::int64_t>(fleet.size());
  std::int64_t atNs = nowNs();
  for (Member& member : fleet) {
    sleepUntilNs(atNs += apartNs);
    member.client.send(run);
  }
  for (Member& member : fleet) {
    const Json::Value answer = member.client.receive(300'000);
    append(load.us, answer["ns"], kUsPerNs);
    load.failures += answer["failures"].asUInt();
  }
  const MachineTime after = machineTime();
  const double busy = after.busy - before.busy;
  const double all = busy + after.idle - before.idle;
  const double elapsed = all / static_cast<double>(::sysconf(_SC_NPROCESSORS_ONLN));
  load.robotsPercent = 100 * (cpuSecondsOf(robots) - robotsBefore) / elapsed;
  load.clientsPercent = 100 * (cpuSecondsOf(clients) - clientsBefore) / elapsed;
  load.busyPercent = 100 * busy / all;
  return load;
}

Row rowOf(const Load& load, const char* baseline, const Figures& alone,
          std::optional<double> wanted) {
  Row row;
  row.id = "fleet." + std::to_string(load.size);
  row.ours =
      "queryMotionState, " + std::to_string(load.size) + (load.size == 1 ? " robot" : " robots");
  row.baseline = baseline;
  row.unit = "us";
  const bool full = load.busyPercent >= kFullPercent;
  row = compare(std::move(row), Figures::of(load.us), alone, full ? std::nullopt : wanted,
                std::nullopt);
  char note[160];
  std::snprintf(note, sizeof note,
                "robots %.0f%%, clients %.0f%% of a core; machine %.0f%% busy%s; %u of %zu failed",
                load.robotsPercent, load.clientsPercent, load.busyPercent,
                full ? ": the cores are full" : "", load.failures, load.us.size());
  row.note = note;
  return row;
}

/// Ends all but the first `size` members.
void shrink(std::vector<Member>& fleet, std::size_t size) {
  for (std::size_t i = size; i < fleet.size(); ++i) {
    fleet[i].client.beginEnd();
    fleet[i].robot.beginEnd();
  }
  while (fleet.size() > size) fleet.pop_back();
}

}  // namespace

std::vector<Row> measureFleet(const Plan& plan) {
  const std::uint32_t largest = plan.of(2U, 32U, 32U);
  const std::uint32_t seconds = plan.of(1U, 10U, 30U);
  std::vector<Member> fleet;
  std::vector<Load> loads;
  const auto measureSettled = [&] {
    static_cast<void>(measure(fleet, 1));  // everybody has noticed who came and who went
    return measure(fleet, seconds);
  };
  for (const std::uint32_t size : kSizes) {
    if (size > largest) break;
    while (fleet.size() < size) fleet.push_back(startMember(fleet.size() + 1));
    loads.push_back(measureSettled());
  }
  // The machine may have changed meanwhile: the first one alone once more.
  shrink(fleet, 1);
  const Figures again = Figures::of(measureSettled().us);
  shrink(fleet, 0);

  const Figures alone = Figures::between(Figures::of(loads.front().us), again);
  std::vector<Row> rows = {rowOf(loads.front(), "the same at the end", again, std::nullopt)};
  for (std::size_t i = 1; i < loads.size(); ++i) {
    rows.push_back(rowOf(loads[i], "1 robot, mean of begin and end", alone, kFlat));
  }
  return rows;
}

}  // namespace bench
