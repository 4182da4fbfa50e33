#pragma once

#include <json/json.h>

#include <string>

#include "doctor/Finding.h"

namespace robotctl::doctor {

/// How many findings have that verdict.
[[nodiscard]] int count(const Findings& findings, Verdict verdict);

/// Lines for people: a row for each finding; below those that aren't fine what they mean and their
/// cure. `heading` is the first line.
[[nodiscard]] std::string textReport(const std::string& heading, const Findings& findings);

/// {"deployment", "problems", "warnings", "findings": [{"check", "verdict" ("ok", "warning",
/// "problem"), "subject", "seen", "meaning", "cure"}]}.
[[nodiscard]] Json::Value jsonReport(const std::string& deployment, const Findings& findings);

}  // namespace robotctl::doctor
