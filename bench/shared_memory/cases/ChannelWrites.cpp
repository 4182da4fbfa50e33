// A control record's way through a channel: what the write costs, and when the reader's callback
// has it; against iceoryx, and against a shared page with a futex. Writer and reader are processes
// of their own on all sides, which take turns.

#include <cstdio>
#include <optional>

#include "shared_memory/cases/ShmCases.h"
#include "shared_memory/cases/Side.h"

namespace bench {
namespace {

/// p50 says what a write costs that needn't wait, the mean how fast it goes on and on.
Row tightRow(const Side& ours, const Side* iceoryx, const char* listener) {
  Row row = against(rowOf("shm.write.tight.iceoryx", "write in a tight loop", listener, "ns"), ours,
                    iceoryx, Side::kTight, 1.0);
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
  inTurn(channels, measureAwake, plan.of(2U, 500U, 1000U), kWritesPerReading);
  inTurn(channels, measureAlone, plan.of(2U, 30U, 100U), plan.of(1600U, 16000U, 16000U));

  const Side& ours = sides.front();
  const Side* const peer = iceoryx ? &sides[1] : nullptr;
  const Side* const futex = &sides.back();
  const char* const listener = "iceoryx, listener";
  const char* const page = "shared page and futex";
  return {against(rowOf("shm.write.paced.iceoryx", "write at 1 kHz, reader asleep", listener, "ns"),
                  ours, peer, Side::kPaced, 0.5, 0.5),
          against(rowOf("shm.write.paced.futex", "write at 1 kHz, reader asleep", page, "ns"), ours,
                  futex, Side::kPaced),
          tightRow(ours, peer, listener),
          against(rowOf("shm.write.awake.iceoryx", "write, reader busy", listener, "ns"), ours,
                  peer, Side::kAwake),
          against(rowOf("shm.write.alone.iceoryx", "write, no reader", "iceoryx, no reader", "ns"),
                  ours, peer, Side::kAlone),
          against(rowOf("shm.delivery.futex", "write to callback, reader asleep", page, "ns"), ours,
                  futex, Side::kDelivery, 1.3),
          against(rowOf("shm.delivery.iceoryx", "write to callback, reader asleep", listener, "ns"),
                  ours, peer, Side::kDelivery, 1.0, 1.0)};
}

}  // namespace bench
