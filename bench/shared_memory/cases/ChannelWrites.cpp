// A control record's way through a channel: what the write costs, and when the reader's callback
// has it; against iceoryx, and against a shared page with a futex. Writer and reader are processes
// of their own on all sides, which take turns.

#include <array>
#include <cstdio>
#include <optional>

#include "shared_memory/cases/ShmCases.h"
#include "shared_memory/peers/Channel.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 1000;
constexpr std::uint32_t kBatch = 16;

enum Figure { kPaced, kDelivery, kTight, kAwake, kAlone, kFigures };

struct Side {
  Ends ends;
  std::optional<Child> lonely;  // the writer of a channel that has no reader
  std::array<std::vector<double>, kFigures> ns = {};
};

Json::Value writing(std::uint32_t count, std::uint32_t intervalUs, std::uint32_t batch) {
  return object({{"do", "write"}, {"count", count}, {"intervalUs", intervalUs}, {"batch", batch}});
}

void write(Side& side, Figure figure, Child& writer, const Json::Value& command) {
  append(side.ns[figure], writer.ask(command)["ns"], 1);
}

/// The reader is asleep before each write.
void measurePaced(Side& side, std::uint32_t count) {
  static_cast<void>(side.ends.reader.ask(object({{"do", "begin"}, {"count", count}})));
  write(side, kPaced, side.ends.writer, writing(count, kPeriodUs, 1));
  append(side.ns[kDelivery], side.ends.reader.ask(command("end"))["ns"], 1);
}

/// As fast as it goes, the reader taking what comes.
void measureTight(Side& side, std::uint32_t count) {
  write(side, kTight, side.ends.writer, writing(count, 0, kBatch));
}

/// The reader is busy in its callback, so that there is nobody to wake.
void measureAwake(Side& side, std::uint32_t count) {
  Json::Value hold = writing(1, 0, 1);
  hold["kind"] = Message::kHold;
  static_cast<void>(side.ends.writer.ask(hold));
  static_cast<void>(side.ends.reader.ask(command("held")));
  write(side, kAwake, side.ends.writer, writing(count, 0, kBatch));
  static_cast<void>(side.ends.reader.ask(command("release")));
}

void measureAlone(Side& side, std::uint32_t count) {
  write(side, kAlone, *side.lonely, writing(count, 0, kBatch));
}

/// The sides in turn, each round beginning with another one, after one round that isn't counted.
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

std::string lossOf(const Side& side) {
  return std::to_string(side.ns[kPaced].size() - side.ns[kDelivery].size()) + " of " +
         std::to_string(side.ns[kPaced].size()) + " lost";
}

Row against(Row row, const Side& ours, const Side* baseline, Figure figure,
            std::optional<double> wantedP50 = {}, std::optional<double> wantedP99 = {}) {
  if (baseline != nullptr) {
    if (figure == kDelivery) row.note = lossOf(ours) + "; baseline: " + lossOf(*baseline);
    return compare(std::move(row), ours.ns[figure], baseline->ns[figure], wantedP50, wantedP99);
  }
  row.oursFigures = Figures::of(ours.ns[figure]);
  row.note = kNoIceoryx;
  return row;
}

/// p50 says what a write costs that needn't wait, the mean how fast it goes on and on.
Row tightRow(const Side& ours, const Side* iceoryx, const char* listener) {
  Row row = against(rowOf("shm.write.tight.iceoryx", "write in a tight loop", listener, "ns"), ours,
                    iceoryx, kTight, 1.0);
  if (!iceoryx) return row;
  char note[160];
  std::snprintf(note, sizeof note,
                "mean %.0f, as fast as its reader takes them; its mean %.0f, dropping what its "
                "reader doesn't take in time",
                row.oursFigures->mean, row.baselineFigures->mean);
  row.note = note;
  return row;
}

}  // namespace

std::vector<Row> measureChannel(const Plan& plan) {
  const auto iceoryx = Iceoryx::start();
  std::vector<Side> sides;  // the last one pages through a futex, and only paced
  sides.push_back({startOwn("paced"), startRole("own-writer", object({{"channel", "alone"}}))});
  if (iceoryx) sides.push_back({iceoryx->ends("paced"), iceoryx->lonelyWriter("alone")});
  sides.push_back({startFutex(), std::nullopt});
  const std::span channels(sides.data(), sides.size() - 1);

  inTurn(sides, measurePaced, plan.of(2U, 20U, 60U), plan.of(50U, 500U, 1000U));
  inTurn(channels, measureTight, plan.of(2U, 30U, 100U), plan.of(1600U, 16000U, 16000U));
  inTurn(channels, measureAwake, plan.of(2U, 500U, 1000U), kBatch);
  inTurn(channels, measureAlone, plan.of(2U, 30U, 100U), plan.of(1600U, 16000U, 16000U));

  const Side& ours = sides.front();
  const Side* const peer = iceoryx ? &sides[1] : nullptr;
  const Side* const futex = &sides.back();
  const char* const listener = "iceoryx, listener";
  const char* const page = "shared page and futex";
  return {against(rowOf("shm.write.paced.iceoryx", "write at 1 kHz, reader asleep", listener, "ns"),
                  ours, peer, kPaced, 0.5, 0.5),
          against(rowOf("shm.write.paced.futex", "write at 1 kHz, reader asleep", page, "ns"), ours,
                  futex, kPaced),
          tightRow(ours, peer, listener),
          against(rowOf("shm.write.awake.iceoryx", "write, reader busy", listener, "ns"), ours,
                  peer, kAwake),
          against(rowOf("shm.write.alone.iceoryx", "write, no reader", "iceoryx, no reader", "ns"),
                  ours, peer, kAlone),
          against(rowOf("shm.delivery.futex", "write to callback, reader asleep", page, "ns"), ours,
                  futex, kDelivery, 1.3),
          against(rowOf("shm.delivery.iceoryx", "write to callback, reader asleep", listener, "ns"),
                  ours, peer, kDelivery, 1.0, 1.0)};
}

}  // namespace bench
