// A control loop's exchange with the robot: an observed record asked for and seen, and a command
// that follows it; against the same bare, with a futex each way.

#include "low_level/cases/LowLevelCases.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 1000;
constexpr double kWanted = 1.5;

struct Partners {
  Ends ends;
  std::vector<double> observing = {};  // from asking to having
  std::vector<double> reacting = {};   // from the record's writing to the command's arrival
};

void exchange(Partners& partners, std::uint32_t count, std::uint32_t intervalUs) {
  static_cast<void>(partners.ends.reader.ask(object({{"do", "begin"}, {"count", count}})));
  const Json::Value run =
      object({{"do", "exchange"}, {"count", count}, {"intervalUs", intervalUs}});
  append(partners.observing, partners.ends.writer.ask(run)["ns"], kUsPerNs);
  append(partners.reacting, partners.ends.reader.ask(command("end"))["ns"], kUsPerNs);
}

Partners startBare() {
  const Json::Value none(Json::objectValue);
  Child answerer = startRole("futex-answerer", none);
  return {{std::move(answerer), startRole("futex-asker", none)}};
}

/// Ours first.
void inTurn(std::span<Partners> sides, std::uint32_t rounds, std::uint32_t count,
            std::uint32_t intervalUs) {
  for (Partners& side : sides) {
    exchange(side, count, intervalUs);
    side.observing.clear();
    side.reacting.clear();
  }
  for (std::uint32_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sides.size(); ++i) {
      exchange(sides[(round + i) % sides.size()], count, intervalUs);
    }
  }
}

}  // namespace

std::vector<Row> measureExchange(const Plan& plan) {
  Partners sides[] = {{startLowLevel()}, startBare()};
  std::vector<Row> rows;
  const auto measure = [&](const char* observeId, const char* observe, const char* reactId,
                           const char* react, std::uint32_t count, std::uint32_t intervalUs) {
    inTurn(sides, plan.of(2U, 20U, 60U), count, intervalUs);
    const char* const bare = "two futexes";
    rows.push_back(compare(rowOf(observeId, observe, bare, "us"), sides[0].observing,
                           sides[1].observing, kWanted, std::nullopt));
    rows.push_back(compare(rowOf(reactId, react, bare, "us"), sides[0].reacting, sides[1].reacting,
                           kWanted, std::nullopt));
  };
  measure("low.observe.futex", "requireObserved at 1 kHz", "low.react.futex",
          "observed to command at robot, 1 kHz", plan.of(50U, 500U, 1000U), kPeriodUs);
  measure("low.observe.tight.futex", "requireObserved, no pause", "low.react.tight.futex",
          "observed to command at robot, no pause", plan.of(50U, 2000U, 5000U), 0);
  return rows;
}

}  // namespace bench
