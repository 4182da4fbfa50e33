#include "harness/Report.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace bench {
namespace {

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, std::abs(value) < 10 ? "%.2f" : "%.1f", value);
  return text;
}

std::string p50Of(const std::optional<Figures>& figures) {
  return figures ? number(figures->p50) : "-";
}

std::string p99Of(const std::optional<Figures>& figures) {
  return figures && figures->p99 ? number(*figures->p99) : "-";
}

const char* nameOf(Comparison::Kind kind) {
  constexpr const char* kNames[] = {"ratio", "difference", "value"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string verdict(const std::optional<Comparison>& comparison) {
  if (!comparison) return "-";
  const bool ratio = comparison->kind == Comparison::Kind::kRatio;
  std::string text = number(comparison->value);
  if (ratio) text += 'x';
  if (!comparison->wanted) return text;
  return text + " (wanted " + number(*comparison->wanted) +
         (comparison->met() ? ": met)" : ": MISSED)");
}

Json::Value toJson(const std::optional<Comparison>& comparison) {
  if (!comparison) return {};
  Json::Value document(Json::objectValue);
  document["kind"] = nameOf(comparison->kind);
  document["value"] = comparison->value;
  if (comparison->wanted) {
    document["wanted"] = *comparison->wanted;
    document["met"] = comparison->met();
  }
  return document;
}

bool isFinite(const std::optional<Figures>& figures) {
  return !figures ||
         (figures->samples > 0 && std::isfinite(figures->mean) && std::isfinite(figures->p50) &&
          std::isfinite(figures->p99.value_or(0)) && std::isfinite(figures->max));
}

bool isFinite(const std::optional<Comparison>& comparison) {
  return !comparison || std::isfinite(comparison->value);
}

}  // namespace

Row rowOf(const char* id, const char* ours, const char* baseline, const char* unit) {
  Row row;
  row.id = id;
  row.ours = ours;
  row.baseline = baseline;
  row.unit = unit;
  return row;
}

Row compare(Row row, const std::vector<double>& ours, const std::vector<double>& baseline,
            std::optional<double> wantedP50, std::optional<double> wantedP99) {
  return compare(std::move(row), Figures::of(ours), Figures::of(baseline), wantedP50, wantedP99);
}

Row compare(Row row, const Figures& ours, const Figures& baseline, std::optional<double> wantedP50,
            std::optional<double> wantedP99) {
  row.oursFigures = ours;
  row.baselineFigures = baseline;
  row.p50 = Comparison{ours.p50 / baseline.p50, wantedP50};
  if (ours.p99 && baseline.p99) row.p99 = Comparison{*ours.p99 / *baseline.p99, wantedP99};
  return row;
}

void printTable(std::FILE* out, const char* title, const std::vector<Row>& rows) {
  std::fprintf(out, "\n%s\n", title);
  std::vector<std::vector<std::string>> cells = {
      {"what", "unit", "p50", "p99", "against", "its p50", "its p99", "p50 ratio", "p99 ratio"}};
  for (const Row& row : rows) {
    cells.push_back({row.ours, row.unit, p50Of(row.oursFigures), p99Of(row.oursFigures),
                     row.baseline, p50Of(row.baselineFigures), p99Of(row.baselineFigures),
                     verdict(row.p50), verdict(row.p99)});
  }
  std::vector<std::size_t> widths(cells.front().size());
  for (const auto& line : cells) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  for (std::size_t index = 0; index < cells.size(); ++index) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      std::fprintf(out, "%-*s%s", static_cast<int>(widths[i]), cells[index][i].c_str(),
                   i + 1 < widths.size() ? "  " : "\n");
    }
    if (index == 0) continue;
    const Row& row = rows[index - 1];
    if (row.mean) {
      std::fprintf(out, "    mean %s, its mean %s: %s\n", number(row.oursFigures->mean).c_str(),
                   number(row.baselineFigures->mean).c_str(), verdict(row.mean).c_str());
    }
    if (!row.note.empty()) std::fprintf(out, "    %s\n", row.note.c_str());
  }
}

Json::Value toJson(const std::vector<Row>& rows) {
  Json::Value document(Json::arrayValue);
  for (const Row& row : rows) {
    Json::Value entry(Json::objectValue);
    entry["id"] = row.id;
    entry["what"] = row.ours;
    entry["against"] = row.baseline;
    entry["unit"] = row.unit;
    if (row.oursFigures) entry["figures"] = row.oursFigures->toJson();
    if (row.baselineFigures) entry["baseline"] = row.baselineFigures->toJson();
    if (row.p50) entry["p50"] = toJson(row.p50);
    if (row.p99) entry["p99"] = toJson(row.p99);
    if (row.mean) entry["mean"] = toJson(row.mean);
    if (!row.note.empty()) entry["note"] = row.note;
    document.append(std::move(entry));
  }
  return document;
}

bool isSound(const Row& row) {
  return (row.oursFigures || !row.note.empty()) && isFinite(row.oursFigures) &&
         isFinite(row.baselineFigures) && isFinite(row.p50) && isFinite(row.p99) &&
         isFinite(row.mean);
}

}  // namespace bench
