#include "harness/Figures.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t kEnoughForP99 = 100;
constexpr std::size_t kEnoughForP999 = 1000;

std::optional<double> middle(const std::optional<double>& one, const std::optional<double>& other) {
  if (!one || !other) return std::nullopt;
  return std::midpoint(*one, *other);
}

}  // namespace

Figures Figures::of(std::vector<double> values) {
  if (values.empty()) throw std::runtime_error("nothing was measured");
  std::sort(values.begin(), values.end());
  const auto rank = [&values](double share) {
    const auto count = static_cast<double>(values.size());
    const auto index = static_cast<std::size_t>(std::max(1.0, std::ceil(share * count))) - 1;
    return values[std::min(index, values.size() - 1)];
  };
  const auto of = [&](double share, std::size_t enough) {
    return values.size() >= enough ? std::optional(rank(share)) : std::nullopt;
  };
  Figures figures;
  figures.samples = values.size();
  figures.mean =
      std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
  figures.p50 = rank(0.5);
  figures.p99 = of(0.99, kEnoughForP99);
  figures.p999 = of(0.999, kEnoughForP999);
  figures.max = values.back();
  return figures;
}

Figures Figures::between(const Figures& one, const Figures& other) {
  Figures figures;
  figures.samples = one.samples + other.samples;
  figures.mean = std::midpoint(one.mean, other.mean);
  figures.p50 = std::midpoint(one.p50, other.p50);
  figures.p99 = middle(one.p99, other.p99);
  figures.p999 = middle(one.p999, other.p999);
  figures.max = std::max(one.max, other.max);
  return figures;
}

Json::Value Figures::toJson() const {
  Json::Value document(Json::objectValue);
  document["samples"] = static_cast<Json::UInt64>(samples);
  document["mean"] = mean;
  document["p50"] = p50;
  if (p99) document["p99"] = *p99;
  if (p999) document["p999"] = *p999;
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
