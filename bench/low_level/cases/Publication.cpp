// publishMotorAction: what the call costs beside a copy of as many bytes, and when the robot has
// the command, beside iceoryx and a bare futex.

#include <cstdio>
#include <optional>

#include "low_level/cases/LowLevelCases.h"
#include "shared_memory/cases/Side.h"

namespace bench {
namespace {

constexpr double kWantedOfCopy = 10;
constexpr const char* kTight = "publishMotorAction in a tight loop";
constexpr const char* kPaced = "publishMotorAction at 1 kHz";
constexpr const char* kDelivery = "publishMotorAction to robot's callback";
constexpr const char* kCopy = "472-byte copy";
constexpr const char* kIceoryx = "iceoryx, listener";
constexpr const char* kFutex = "shared page and futex";

/// Both in turn without a pause, the robot doing what it does; `batch` of our calls for each
/// reading of the clock.
Row againstCopy(Row row, Child& client, Child& copier, std::uint32_t batch, const Plan& plan) {
  const std::uint32_t count = plan.of(1600U, 16000U, 16000U);
  std::vector<double> calling;
  std::vector<double> copying;
  const std::uint32_t rounds = plan.of(2U, 30U, 100U);
  for (std::uint32_t round = 0; round <= rounds; ++round) {
    append(calling, client.ask(writing(count, 0, batch))["ns"], 1);
    append(copying, copier.ask(writing(count, 0, kWritesPerReading))["ns"], 1);
    if (round > 0) continue;  // the first one isn't counted
    calling.clear();
    copying.clear();
  }
  row = compare(std::move(row), calling, copying, kWantedOfCopy, std::nullopt);
  char note[80];
  std::snprintf(note, sizeof note, "mean %.0f, its mean %.0f", row.oursFigures->mean,
                row.baselineFigures->mean);
  row.note = note;
  return row;
}

/// The robot is busy in its callback, so that there is nobody to wake.
Row awakeAgainstCopy(Row row, Side& ours, Child& copier, const Plan& plan) {
  std::vector<double> copying;
  const Json::Value copies = writing(kWritesPerReading, 0, kWritesPerReading);
  const std::uint32_t rounds = plan.of(2U, 500U, 1000U);
  for (std::uint32_t round = 0; round < rounds; ++round) {
    measureAwake(ours, kWritesPerReading);
    append(copying, copier.ask(copies)["ns"], 1);
  }
  return compare(std::move(row), ours.ns[Side::kAwake], copying, kWantedOfCopy, std::nullopt);
}

}  // namespace

std::vector<Row> measurePublication(const Plan& plan) {
  const auto iceoryx = Iceoryx::start();
  std::vector<Side> sides;
  sides.push_back({startLowLevel(), std::nullopt});
  sides.push_back({startFutex(), std::nullopt});
  if (iceoryx) sides.push_back({iceoryx->ends("paced"), std::nullopt});
  Child copier = startRole("plain-copy", Json::Value(Json::objectValue));

  inTurn(sides, measurePaced, plan.of(2U, 20U, 60U), plan.of(50U, 500U, 1000U));
  Side& ours = sides[0];
  Side& futex = sides[1];
  const Side* const peer = iceoryx ? &sides[2] : nullptr;
  Child& client = ours.ends.writer;
  std::vector<Row> rows;
  // One by one: in a batch, one call that wakes the robot or waits for it would hide all others.
  rows.push_back(
      againstCopy(rowOf("low.publish.tight.copy", kTight, kCopy, "ns"), client, copier, 1, plan));
  rows.push_back(awakeAgainstCopy(
      rowOf("low.publish.awake.copy", "publishMotorAction, robot busy", kCopy, "ns"), ours, copier,
      plan));
  static_cast<void>(ours.ends.reader.ask(command("leave")));
  rows.push_back(
      againstCopy(rowOf("low.publish.alone.copy", "publishMotorAction, nobody reads", kCopy, "ns"),
                  client, copier, kWritesPerReading, plan));
  rows.push_back(against(rowOf("low.publish.paced.iceoryx", kPaced, kIceoryx, "ns"), ours, peer,
                         Side::kPaced, 0.5, 0.5));
  rows.push_back(
      against(rowOf("low.publish.paced.futex", kPaced, kFutex, "ns"), ours, &futex, Side::kPaced));
  rows.push_back(against(rowOf("low.delivery.iceoryx", kDelivery, kIceoryx, "ns"), ours, peer,
                         Side::kDelivery, 0.5, 0.5));
  rows.push_back(
      against(rowOf("low.delivery.futex", kDelivery, kFutex, "ns"), ours, &futex, Side::kDelivery));
  return rows;
}

}  // namespace bench
