// bench_host: the benchmarks of the way from an external host to the robot. To be run where only
// loopback is: tools/isolated bench_host.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "cases/Case.h"
#include "harness/Role.h"
#include "pbase/Utils.h"
#include "peers/Observers.h"
#include "peers/RawPing.h"
#include "peers/RpcPair.h"
#include "peers/SdkClient.h"
#include "peers/StandInRobot.h"

namespace {

using namespace bench;

constexpr RoleEntry kRoles[] = {
    {"raw-server", makeRole<RawServer>},       {"raw-client", makeRole<RawClient>},
    {"raw-starter", makeRole<RawStarter>},     {"raw-observer", makeRole<RawObserver>},
    {"rpc-server", makeRole<RpcServerRole>},   {"rpc-client", makeRole<RpcClientRole>},
    {"sdk-client", makeRole<SdkClient>},       {"sdk-starter", makeRole<SdkStarter>},
    {"sdk-observer", makeRole<SdkObserver>},   {"stand-in-robot", makeRole<StandInRobot>},
    {"sdk-blocked", makeRole<BlockedObserver>}};

struct Options {
  std::vector<std::string> only;
  bool quick = false;
  bool lengthy = false;
  bool check = false;
  std::string json;
  Plan plan;
};

void describe(CLI::App& app, Options& options) {
  std::vector<std::string> names;
  for (const Case& entry : allCases()) names.emplace_back(entry.name);
  app.description("Measures the library against raw libddsc and gRPC; docs/benchmarks.md.");
  app.add_option("--only", options.only, "Cases to run")->check(CLI::IsMember(names));
  app.add_flag("--quick", options.quick, "A few samples of everything: to see that it works");
  app.add_flag("--long", options.lengthy, "More samples, and the soak");
  app.add_flag("--check", options.check, "Fail when a row is missing or not finite");
  app.add_option("--json", options.json, "File to write the figures to as JSON");
  app.add_option("--soak", options.plan.soakSeconds, "Length of the soak in seconds")
      ->capture_default_str()
      ->check(CLI::Range(10, 86400));
}

bool isWanted(const Case& entry, const Options& options) {
  if (options.only.empty()) return !entry.onlyLong || options.lengthy || options.check;
  return std::ranges::find(options.only, entry.name) != options.only.end();
}

/// True when the rows that a case promises are there, with figures.
bool isComplete(const Case& entry, const std::vector<Row>& rows) {
  return std::ranges::all_of(entry.ids, [&](const char* id) {
    const auto row = std::ranges::find(rows, id, &Row::id);
    if (row != rows.end() && isSound(*row)) return true;
    std::fprintf(stderr, "bench_host: row %s is missing or not finite\n", id);
    return false;
  });
}

bool writeJson(const Options& options, const std::vector<Row>& rows) {
  if (options.json.empty()) return true;
  Json::Value document(Json::objectValue);
  document["cores"] = std::thread::hardware_concurrency();
  document["length"] = options.quick ? "quick" : options.lengthy ? "long" : "normal";
  document["rows"] = toJson(rows);
  std::ofstream file(options.json);
  file << Pexal::Utils::jsonToString(document, false) << '\n';
  file.close();
  if (!file) std::fprintf(stderr, "bench_host: cannot write %s\n", options.json.c_str());
  return static_cast<bool>(file);
}

int run(const Options& options) {
  bool failed = false;
  std::vector<Row> rows;
  for (const Case& entry : allCases()) {
    if (!isWanted(entry, options)) continue;
    std::fprintf(stderr, "measuring %s ...\n", entry.name);
    try {
      const std::vector<Row> measured = entry.run(options.plan);
      failed |= options.check && !isComplete(entry, measured);
      rows.insert(rows.end(), measured.begin(), measured.end());
    } catch (const std::exception& error) {
      std::fprintf(stderr, "bench_host: %s: %s\n", entry.name, error.what());
      failed = true;
    }
  }
  printTable(stdout, rows);
  return writeJson(options, rows) && !failed ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--role") return playRole(kRoles, argv[2], argv[3]);
  Options options;
  CLI::App app("", "bench_host");
  describe(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  using Length = Plan::Length;
  options.plan.length = options.quick     ? Length::kQuick
                        : options.lengthy ? Length::kLong
                                          : Length::kNormal;
  return run(options);
}
