#include "harness/Program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "pbase/Utils.h"

namespace bench {
namespace {

struct Options {
  std::vector<std::string> only;
  bool quick = false;
  bool lengthy = false;
  bool check = false;
  std::string json;
  Plan plan;
};

void describe(CLI::App& app, const Program& program, Options& options) {
  std::vector<std::string> names;
  for (const Case& entry : program.cases) names.emplace_back(entry.name);
  app.description(program.description);
  app.add_option("--only", options.only, "Cases to run")->check(CLI::IsMember(names));
  app.add_flag("--quick", options.quick, "A few samples of everything: to see that it works");
  app.add_flag("--long", options.lengthy, "More samples, and the cases that take long");
  app.add_flag("--check", options.check, "Fail when a row is missing or not finite");
  app.add_option("--json", options.json, "File to write the figures to as JSON");
  app.add_option("--soak", options.plan.soakSeconds, "Length of a soak in seconds")
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
    std::fprintf(stderr, "row %s is missing or not finite\n", id);
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
  if (!file) std::fprintf(stderr, "cannot write %s\n", options.json.c_str());
  return static_cast<bool>(file);
}

int run(const Program& program, const Options& options) {
  bool failed = false;
  std::vector<Row> rows;
  for (const Case& entry : program.cases) {
    if (!isWanted(entry, options)) continue;
    std::fprintf(stderr, "measuring %s ...\n", entry.name);
    try {
      const std::vector<Row> measured = entry.run(options.plan);
      failed |= options.check && !isComplete(entry, measured);
      rows.insert(rows.end(), measured.begin(), measured.end());
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s: %s: %s\n", program.name, entry.name, error.what());
      failed = true;
    }
  }
  printTable(stdout, program.title, rows);
  return writeJson(options, rows) && !failed ? 0 : 1;
}

}  // namespace

int runProgram(const Program& program, int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--role") {
    return playRole(program.roles, argv[2], argv[3]);
  }
  Options options;
  CLI::App app("", program.name);
  describe(app, program, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  using Length = Plan::Length;
  options.plan.length = options.quick     ? Length::kQuick
                        : options.lengthy ? Length::kLong
                                          : Length::kNormal;
  return run(program, options);
}

}  // namespace bench
