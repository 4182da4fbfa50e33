// What a connected client uses of a processor while the robot publishes 500 motion samples a
// second: idle, and with both streams on. One after the other: with several readers of a topic the
// robot sends to the multicast address, and then everybody pays for what one reads.

#include <array>

#include "cases/HostCases.h"
#include "harness/Clock.h"

namespace bench {
namespace {

constexpr const char* kDevice = "BENCH-CPU";
constexpr std::int64_t kSecondNs = 1'000'000'000;

/// One process, and what it does while it is looked at.
struct Side {
  Child child;
  const char* begin;
  const char* end;
  std::vector<double> percent;
  double switches = 0;  // in all slices

  void look(std::int64_t settleNs, std::int64_t sliceNs) {
    static_cast<void>(child.ask(command(begin)));
    sleepUntilNs(nowNs() + settleNs);
    const Json::Value before = child.ask(command("usage"));
    const std::int64_t from = nowNs();
    sleepUntilNs(from + sliceNs);
    const Json::Value after = child.ask(command("usage"));
    const auto elapsed = static_cast<double>(nowNs() - from);
    percent.push_back(100 * (after["cpuNs"].asDouble() - before["cpuNs"].asDouble()) / elapsed);
    switches +=
        (after["switches"].asDouble() - before["switches"].asDouble()) * kSecondNs / elapsed;
    static_cast<void>(child.ask(command(end)));
  }

  void lookUncounted(std::int64_t settleNs, std::int64_t sliceNs) {
    look(settleNs, sliceNs);
    percent.clear();
    switches = 0;
  }
};

Row shareRow(const char* id, const char* ours, const Side& mine, const Side& raw) {
  Row row = compare(rowOf(id, ours, "raw reader, wait-set threads", "% of a core"), mine.percent,
                    raw.percent, std::nullopt, std::nullopt);
  const auto perSecond = [](const Side& side) {
    return std::to_string(
        static_cast<long>(side.switches / static_cast<double>(side.percent.size())));
  };
  row.note = perSecond(mine) + " context switches a second, raw " + perSecond(raw);
  return row;
}

}  // namespace

std::vector<Row> measureProcessor(const Plan& plan) {
  const Child robot = startRobot(kDevice);
  const Json::Value ours = object({{"device", kDevice}});
  const Json::Value raw = object({{"domain", kHostDomain}});
  Side idle{startRole("sdk-observer", ours), "connect", "detach", {}};
  Side observing{startRole("sdk-observer", ours), "attach", "detach", {}};
  Side reader{startRole("raw-observer", raw), "attach", "detach", {}};
  const std::uint32_t rounds = plan.of(1U, 6U, 21U);
  const std::int64_t settleNs = plan.of(kSecondNs / 10, kSecondNs, kSecondNs);
  const std::int64_t sliceNs = plan.of(kSecondNs / 2, 2 * kSecondNs, 3 * kSecondNs);
  const std::array sides = {&idle, &observing, &reader};
  for (Side* const side : sides) side->lookUncounted(settleNs, sliceNs);
  for (std::uint32_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sides.size(); ++i) {
      sides[(round + i) % sides.size()]->look(settleNs, sliceNs);
    }
  }
  return {shareRow("processor.idle", "connected client, streams off", idle, reader),
          shareRow("processor.observing", "client that observes at 500 Hz", observing, reader)};
}

}  // namespace bench
