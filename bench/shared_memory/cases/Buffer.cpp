// Reading the latest-value buffer: what a read costs beside a plain copy, and whether one is ever
// torn.

#include <algorithm>
#include <thread>

#include "shared_memory/cases/ShmCases.h"

namespace bench {
namespace {

constexpr std::uint32_t kPeriodUs = 2000;  // 500 records a second
constexpr std::uint32_t kReadsPerBatch = 1000;
constexpr std::uint32_t kMotionBytes = 712;
constexpr std::uint32_t kSensorBytes = 76;
constexpr double kNsOfASmallRead = 20;

Child startWriter(const char* name, std::uint32_t size, std::uint32_t intervalUs) {
  return startRole("buffer-writer",
                   object({{"name", name}, {"size", size}, {"intervalUs", intervalUs}}));
}

/// Figures in nanoseconds.
Row readAgainstCopy(Row row, const Plan& plan, std::uint32_t size, double wanted, double wantedNs) {
  const Child writer = startWriter("bench_read", size, kPeriodUs);
  Child reader = startRole("buffer-reader", object({{"name", "bench_read"}, {"size", size}}));
  Child copier = startRole("plain-copier", object({{"size", size}}));
  Contender sides[] = {{reader, {}}, {copier, {}}};
  interleave(
      sides,
      object({{"do", "run"}, {"count", plan.of(50U, 500U, 500U)}, {"batch", kReadsPerBatch}}),
      plan.of(2U, 30U, 100U));
  const Figures copying = Figures::of(sides[1].ns);
  return compare(std::move(row), Figures::of(sides[0].ns), copying,
                 std::max(wanted, wantedNs / copying.p50), std::nullopt);
}

}  // namespace

std::vector<Row> measureBuffer(const Plan& plan) {
  std::vector<Row> rows;
  rows.push_back(
      readAgainstCopy(rowOf("shm.buffer.712.memcpy", "buffer read, 712 bytes", "memcpy", "ns"),
                      plan, kMotionBytes, 3, 0));
  rows.push_back(
      readAgainstCopy(rowOf("shm.buffer.76.memcpy", "buffer read, 76 bytes", "memcpy", "ns"), plan,
                      kSensorBytes, 8, kNsOfASmallRead));
  rows.back().note = "wanted: 8 times memcpy, or 20 ns";
  return rows;
}

std::vector<Row> measureTorn(const Plan& plan) {
  constexpr std::uint64_t kReadsPerBlock = 1'000'000;
  const std::uint64_t reads = plan.of<std::uint64_t>(100'000, 20'000'000, 1'000'000'000);
  Child writer = startWriter("bench_torn", kMotionBytes, 0);
  // One process for each processor, the writer's included.
  const unsigned cores = std::clamp(std::thread::hardware_concurrency(), 2U, 8U);
  std::vector<Child> readers;
  for (unsigned i = 1; i < cores; ++i) {
    readers.push_back(
        startRole("buffer-checker", object({{"name", "bench_torn"}, {"size", kMotionBytes}})));
  }
  const std::uint64_t before = writer.ask(command("count"))["written"].asUInt64();
  std::uint64_t done = 0;
  std::uint64_t torn = 0;
  std::uint64_t busy = 0;
  while (done < reads) {
    const std::uint64_t block = std::min(kReadsPerBlock, reads - done);
    for (Child& reader : readers) {
      reader.send(object({{"do", "check"}, {"count", static_cast<Json::UInt64>(block)}}));
    }
    for (Child& reader : readers) {
      const Json::Value answer = reader.receive();
      torn += answer["torn"].asUInt64() + answer["older"].asUInt64();
      busy += answer["busy"].asUInt64();
      done += block;
    }
  }
  const std::uint64_t written = writer.ask(command("count"))["written"].asUInt64() - before;
  Row row = rowOf("shm.buffer.torn", "torn or out-of-order buffer reads", "", "count");
  row.oursFigures = Figures::of({static_cast<double>(torn)});
  row.p50 = Comparison{static_cast<double>(torn), 0.0, Comparison::Kind::kValue};
  row.note = std::to_string(done) + " reads by " + std::to_string(readers.size()) +
             " reader(s), every word checked, " + std::to_string(written) +
             " records written meanwhile; " + std::to_string(busy) + " more reads were busy";
  return {row};
}

}  // namespace bench
