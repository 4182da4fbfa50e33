// Requests and processor time with more and more robots in one namespace, each with a client of its
// own that asks at a fixed, modest rate.

#include <unistd.h>

#include <cstdio>

#include "cases/Case.h"
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
  for (Member& member : fleet) member.client.send(run);
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

Row rowOf(std::size_t size, const Load& load, const std::vector<double>& alone) {
  Row row;
  row.id = "fleet." + std::to_string(size);
  row.ours = "queryMotionState, " + std::to_string(size) + (size == 1 ? " robot" : " robots");
  row.baseline = "1 robot";
  row.unit = "us";
  const bool full = load.busyPercent >= kFullPercent;
  row = compare(std::move(row), load.us, alone, std::nullopt, std::nullopt);
  if (!full) row.p50->wanted = kFlat;
  char note[160];
  std::snprintf(note, sizeof note,
                "robots %.0f%%, clients %.0f%% of a core; machine %.0f%% busy%s; %u of %zu failed",
                load.robotsPercent, load.clientsPercent, load.busyPercent,
                full ? ": the cores are full" : "", load.failures, load.us.size());
  row.note = note;
  return row;
}

}  // namespace

std::vector<Row> measureFleet(const Plan& plan) {
  const std::uint32_t largest = plan.of(2U, 32U, 32U);
  std::vector<Member> fleet;
  std::vector<Row> rows;
  std::vector<double> alone;
  for (const std::uint32_t size : kSizes) {
    if (size > largest) break;
    while (fleet.size() < size) fleet.push_back(startMember(fleet.size() + 1));
    static_cast<void>(measure(fleet, 1));  // everybody has found everybody
    const Load load = measure(fleet, plan.of(1U, 10U, 30U));
    if (alone.empty()) alone = load.us;
    rows.push_back(rowOf(size, load, alone));
  }
  for (Member& member : fleet) {
    member.client.beginEnd();
    member.robot.beginEnd();
  }
  return rows;
}

}  // namespace bench
