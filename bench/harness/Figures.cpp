#include "harness/Figures.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace bench {

Figures Figures::of(std::vector<double> values) {
  if (values.empty()) throw std::runtime_error("nothing was measured");
  std::sort(values.begin(), values.end());
  const auto rank = [&values](double share) {
    const auto count = static_cast<double>(values.size());
    const auto index = static_cast<std::size_t>(std::max(1.0, std::ceil(share * count))) - 1;
    return values[std::min(index, values.size() - 1)];
  };
  return {values.size(), rank(0.5), rank(0.99), rank(0.999), values.back()};
}

Json::Value Figures::toJson() const {
  Json::Value document(Json::objectValue);
  document["samples"] = static_cast<Json::UInt64>(samples);
  document["p50"] = p50;
  document["p99"] = p99;
  document["p999"] = p999;
  document["max"] = max;
  return document;
}

void append(std::vector<double>& values, const Json::Value& array, double scale) {
  if (!array.isArray()) throw std::runtime_error("an answer lacks its measured values");
  for (const Json::Value& value : array) {
    if (!value.isNumeric()) throw std::runtime_error("a measured value is no number");
    values.push_back(value.asDouble() * scale);
  }
}

}  // namespace bench
