#include "doctor/Report.h"

#include <algorithm>
#include <cstddef>

#include "core/Text.h"

namespace robotctl::doctor {
namespace {

constexpr std::size_t kVerdictWidth = 9;

const char* nameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::kOk:
      return "ok";
    case Verdict::kWarning:
      return "warning";
    case Verdict::kProblem:
      return "problem";
  }
  return "";
}

std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

/// Every line but the first begins below it.
std::string indented(const std::string& text, std::size_t column) {
  std::string result;
  for (const char c : text) {
    result += c;
    if (c == '\n') result.append(column, ' ');
  }
  return result;
}

std::string counted(int number, const char* what) {
  return std::to_string(number) + ' ' + what + (number == 1 ? "" : "s");
}

}  // namespace

int count(const Findings& findings, Verdict verdict) {
  return static_cast<int>(
      std::count_if(findings.begin(), findings.end(),
                    [verdict](const Finding& finding) { return finding.verdict == verdict; }));
}

std::string textReport(const std::string& heading, const Findings& findings) {
  std::size_t subjectWidth = 0;
  for (const Finding& finding : findings) {
    subjectWidth = std::max(subjectWidth, finding.subject.size());
  }
  const std::size_t column = kVerdictWidth + subjectWidth + 2;
  std::string text = heading + "\n\n";
  const auto explain = [&](const char* label, const std::string& what) {
    if (!what.empty()) {
      text += std::string(kVerdictWidth, ' ') + label + indented(what, kVerdictWidth + 7) + '\n';
    }
  };
  for (const Finding& finding : findings) {
    text += padded(nameOf(finding.verdict), kVerdictWidth) +
            padded(finding.subject, subjectWidth + 2) + indented(finding.seen, column) + '\n';
    explain("means  ", finding.meaning);
    explain("cure   ", finding.cure);
  }
  const int problems = count(findings, Verdict::kProblem);
  const int warnings = count(findings, Verdict::kWarning);
  text += '\n';
  return text + (problems + warnings == 0
                     ? "Everything is fine."
                     : counted(problems, "problem") + ", " + counted(warnings, "warning") + '.');
}

Json::Value jsonReport(const std::string& deployment, const Findings& findings) {
  Json::Value document;
  document["deployment"] = deployment;
  document["problems"] = count(findings, Verdict::kProblem);
  document["warnings"] = count(findings, Verdict::kWarning);
  Json::Value& rows = document["findings"] = Json::Value(Json::arrayValue);
  for (const Finding& finding : findings) {
    Json::Value row;
    row["check"] = finding.check;
    row["verdict"] = nameOf(finding.verdict);
    row["subject"] = finding.subject;
    row["seen"] = finding.seen;
    row["meaning"] = finding.meaning;
    row["cure"] = finding.cure;
    rows.append(std::move(row));
  }
  return document;
}

}  // namespace robotctl::doctor
