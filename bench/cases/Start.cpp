// The library's start, from `initial` to the first robot in the discover callback, against raw
// libddsc on the same way: participant, match in both directions, one question and its answer. The
// peer runs already; each run takes place in a fresh process.

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <string>

#include "cases/HostCases.h"

namespace bench {
namespace {

constexpr const char* kDevice = "BENCH-START";
constexpr double kWanted = 1.5;
/// Starts come in kinds: a start that takes so much longer than the side's fastest is slow or late.
constexpr double kSlowMs = 5;
constexpr double kLateMs = 100;

struct Side {
  const char* role;
  Json::Value arguments;
  std::vector<double> ms;

  [[nodiscard]] double startOnce() const {
    Child child = startRole(role, arguments);
    return child.ask(command("start"))["ns"][0].asDouble() * kMsPerNs;
  }

  /// Share of the starts that take `least` longer than the fastest, and not `below` longer.
  [[nodiscard]] double percentOf(double least, double below) const {
    const double fastest = *std::ranges::min_element(ms);
    const auto count = std::ranges::count_if(
        ms, [&](double value) { return value >= fastest + least && value < fastest + below; });
    return 100 * static_cast<double>(count) / static_cast<double>(ms.size());
  }

  [[nodiscard]] std::string kinds() const {
    char text[100];
    std::snprintf(
        text, sizeof text, "%.1f%% slow, %.1f%% late, longest %.1f", percentOf(kSlowMs, kLateMs),
        percentOf(kLateMs, std::numeric_limits<double>::infinity()), *std::ranges::max_element(ms));
    return text;
  }
};

}  // namespace

std::vector<Row> measureStart(const Plan& plan) {
  const Child robot = startRobot(kDevice);
  const Child rawServer = startRole(
      "raw-server",
      object(
          {{"domain", kRawDomain}, {"topic", "start"}, {"reply", kDevice}, {"keepsLast", true}}));
  std::array<Side, 2> sides = {
      {{"sdk-starter", Json::Value(Json::objectValue), {}},
       {"raw-starter", object({{"domain", kRawDomain}, {"topic", "start"}}), {}}}};
  const auto& [ours, raw] = sides;
  for (const Side& side : sides) static_cast<void>(side.startOnce());
  const std::uint32_t rounds = plan.of(2U, 200U, 500U);
  for (std::uint32_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sides.size(); ++i) {
      Side& side = sides[(round + i) % sides.size()];
      side.ms.push_back(side.startOnce());
    }
  }
  Row row = compare(rowOf("start.discovery.raw", "start to first robot reported",
                          "raw libddsc to first answer", "ms"),
                    ours.ms, raw.ms, std::nullopt, std::nullopt);
  // Where p50 falls among the kinds is chance; the mean tells how many there are of each.
  row.mean = Comparison{row.oursFigures->mean / row.baselineFigures->mean, kWanted};
  row.note = ours.kinds() + "; raw: " + raw.kinds();
  return {row};
}

}  // namespace bench
