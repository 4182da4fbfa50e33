#pragma once

#include <json/value.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "harness/Figures.h"

namespace bench {

/// Ours against a baseline: one figure of both, and what is wanted of it.
struct Comparison {
  enum class Kind { kRatio, kDifference, kValue };  ///< kValue: ours alone
  double value = 0;
  std::optional<double> wanted;  ///< at most that much; nothing: for information
  Kind kind = Kind::kRatio;

  [[nodiscard]] bool met() const { return !wanted || value <= *wanted; }
};

/// One line of the table.
struct Row {
  std::string id;        ///< names the row for programs: "rpc.query_motion_state.raw"
  std::string ours;      ///< what was measured
  std::string baseline;  ///< what it is compared with; "" when it stands alone
  std::string unit;
  std::optional<Figures> oursFigures;  ///< nothing: not measured, and `note` says why
  std::optional<Figures> baselineFigures;
  std::optional<Comparison> p50;
  std::optional<Comparison> p99;
  std::optional<Comparison> mean;  ///< only where it is judged
  std::string note;
};

[[nodiscard]] Row rowOf(const char* id, const char* ours, const char* baseline, const char* unit);

/// A row of both sides with the ratios of their p50 and p99, the latter if both have one.
[[nodiscard]] Row compare(Row row, const std::vector<double>& ours,
                          const std::vector<double>& baseline, std::optional<double> wantedP50,
                          std::optional<double> wantedP99);
[[nodiscard]] Row compare(Row row, const Figures& ours, const Figures& baseline,
                          std::optional<double> wantedP50, std::optional<double> wantedP99);

void printTable(std::FILE* out, const char* title, const std::vector<Row>& rows);
[[nodiscard]] Json::Value toJson(const std::vector<Row>& rows);
/// The figures of a row are there and finite, or its note says why there are none.
[[nodiscard]] bool isSound(const Row& row);

}  // namespace bench
