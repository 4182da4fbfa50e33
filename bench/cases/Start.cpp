// The library's start, from `initial` to the first robot in the discover callback, against raw
// libddsc on the same way: participant, match in both directions, one question and its answer. The
// peer runs already; each run takes place in a fresh process.

#include "cases/Case.h"

namespace bench {
namespace {

constexpr const char* kDevice = "BENCH-START";

double startOnce(const char* role, const Json::Value& arguments) {
  Child child = startRole(role, arguments);
  return child.ask(command("start"))["ns"][0].asDouble();
}

}  // namespace

std::vector<Row> measureStart(const Plan& plan) {
  const Child robot = startRobot(kDevice);
  const Child rawServer = startRole(
      "raw-server",
      object(
          {{"domain", kRawDomain}, {"topic", "start"}, {"reply", kDevice}, {"keepsLast", true}}));
  const Json::Value rawArguments = object({{"domain", kRawDomain}, {"topic", "start"}});
  std::vector<double> ours;
  std::vector<double> raw;
  const std::uint32_t runs = plan.of(2U, 30U, 100U);
  for (std::uint32_t run = 0; run < runs; ++run) {
    ours.push_back(startOnce("sdk-starter", Json::Value(Json::objectValue)) * kMsPerNs);
    raw.push_back(startOnce("raw-starter", rawArguments) * kMsPerNs);
  }
  Row row;
  row.id = "start.discovery.raw";
  row.ours = "start to first robot reported";
  row.baseline = "raw libddsc to first answer";
  row.unit = "ms";
  return {compare(row, ours, raw, 1.5, std::nullopt)};
}

}  // namespace bench
