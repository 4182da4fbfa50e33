#include "low_level/peers/Loop.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "harness/Clock.h"

namespace bench {
namespace {

constexpr std::int64_t kNsPerUs = 1000;
constexpr std::int64_t kNsPerSecond = 1'000'000'000;

std::int64_t processorNsOfThread() {
  timespec used{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return used.tv_sec * kNsPerSecond + used.tv_nsec;
}

}  // namespace

Json::Value LoopRole::handle(const Json::Value& command) {
  if (command["do"] == "loop") {
    return loop(command["count"].asUInt(), command["intervalUs"].asInt64() * kNsPerUs);
  }
  if (command["do"] == "periods")
    return periods(command["from"].asUInt(), command["count"].asUInt());
  throw std::runtime_error("unknown command");
}

Json::Value LoopRole::loop(std::uint32_t count, std::int64_t intervalNs) {
  periodsNs_.clear();
  periodsNs_.reserve(count);
  const std::int64_t cpuBefore = processorNsOfThread();
  const std::int64_t begin = nowNs();
  std::int64_t due = begin;
  std::int64_t former = begin;
  for (std::uint32_t i = 0; i < count; ++i) {
    sleepUntilNs(due += intervalNs);
    const std::int64_t now = nowNs();
    if (i > 0) periodsNs_.push_back(now - former);
    former = now;
    pass();
  }
  Json::Value answer(Json::objectValue);
  answer["wallNs"] = static_cast<Json::Int64>(nowNs() - begin);
  answer["cpuNs"] = static_cast<Json::Int64>(processorNsOfThread() - cpuBefore);
  return answer;
}

Json::Value LoopRole::periods(std::size_t from, std::size_t count) const {
  from = std::min(from, periodsNs_.size());
  count = std::min(count, periodsNs_.size() - from);
  const auto begin = periodsNs_.begin() + static_cast<std::ptrdiff_t>(from);
  Json::Value answer(Json::objectValue);
  answer["ns"] =
      toJson(std::vector<std::int64_t>(begin, begin + static_cast<std::ptrdiff_t>(count)));
  return answer;
}

}  // namespace bench
