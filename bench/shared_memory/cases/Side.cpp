#include "shared_memory/cases/Side.h"

#include <utility>

#include "shared_memory/peers/Channel.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 1000;

void write(Side& side, Side::Figure figure, Child& writer, const Json::Value& command) {
  append(side.ns[figure], writer.ask(command)["ns"], 1);
}

std::string lossOf(const Side& side) {
  return std::to_string(side.ns[Side::kPaced].size() - side.ns[Side::kDelivery].size()) + " of " +
         std::to_string(side.ns[Side::kPaced].size()) + " lost";
}

}  // namespace

Json::Value writing(std::uint32_t count, std::uint32_t intervalUs, std::uint32_t batch) {
  return object({{"do", "write"}, {"count", count}, {"intervalUs", intervalUs}, {"batch", batch}});
}

void measurePaced(Side& side, std::uint32_t count) {
  static_cast<void>(side.ends.reader.ask(object({{"do", "begin"}, {"count", count}})));
  write(side, Side::kPaced, side.ends.writer, writing(count, kPeriodUs, 1));
  append(side.ns[Side::kDelivery], side.ends.reader.ask(command("end"))["ns"], 1);
}

void measureTight(Side& side, std::uint32_t count) {
  // In a batch, one write that wakes the reader or waits for it would hide all others.
  write(side, Side::kTight, side.ends.writer, writing(count, 0, 1));
}

void measureAwake(Side& side, std::uint32_t count) {
  Json::Value hold = writing(1, 0, 1);
  hold["kind"] = Message::kHold;
  static_cast<void>(side.ends.writer.ask(hold));
  static_cast<void>(side.ends.reader.ask(command("held")));
  write(side, Side::kAwake, side.ends.writer, writing(count, 0, kWritesPerReading));
  static_cast<void>(side.ends.reader.ask(command("release")));
}

void measureAlone(Side& side, std::uint32_t count) {
  write(side, Side::kAlone, *side.lonely, writing(count, 0, kWritesPerReading));
}

void inTurn(std::span<Side> sides, void (*measure)(Side&, std::uint32_t), std::uint32_t rounds,
            std::uint32_t count) {
  for (Side& side : sides) {
    const auto before = side.ns;
    measure(side, count);
    side.ns = before;
  }
  for (std::uint32_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sides.size(); ++i)
      measure(sides[(round + i) % sides.size()], count);
  }
}

Row against(Row row, const Side& ours, const Side* baseline, Side::Figure figure,
            std::optional<double> wantedP50, std::optional<double> wantedP99) {
  if (baseline != nullptr) {
    if (figure == Side::kDelivery) row.note = lossOf(ours) + "; baseline: " + lossOf(*baseline);
    return compare(std::move(row), ours.ns[figure], baseline->ns[figure], wantedP50, wantedP99);
  }
  row.oursFigures = Figures::of(ours.ns[figure]);
  row.note = kNoIceoryx;
  return row;
}

}  // namespace bench
