#include "shared_memory/cases/Counted.h"

#include "harness/SystemCalls.h"
#include "shared_memory/peers/Channel.h"

namespace bench {

Json::Value marked(std::uint32_t count, std::uint32_t intervalUs) {
  return object({{"do", "marked"}, {"count", count}, {"intervalUs", intervalUs}});
}

Cost costOf(Child& writer, const Json::Value& command) {
  const std::uint32_t count = command["count"].asUInt();
  const Traced traced = countSystemCalls(writer, command, count);
  return {static_cast<double>(traced.systemCalls) / count,
          traced.answer["allocations"].asDouble() / count};
}

Cost costWhileAwake(Ends& ends, const Json::Value& operation) {
  static_cast<void>(
      ends.writer.ask(object({{"do", "write"}, {"count", 1}, {"kind", Message::kHold}})));
  static_cast<void>(ends.reader.ask(command("held")));
  const Cost cost = costOf(ends.writer, operation);
  static_cast<void>(ends.reader.ask(command("release")));
  return cost;
}

Row counted(Row row, double value, std::optional<double> wanted) {
  row.oursFigures = Figures::of({value});
  row.p50 = Comparison{value, wanted, Comparison::Kind::kValue};
  return row;
}

}  // namespace bench
