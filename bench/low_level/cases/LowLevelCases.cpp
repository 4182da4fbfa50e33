#include "low_level/cases/LowLevelCases.h"

#include <utility>

namespace bench {
namespace {

constexpr const char* kPublishIds[] = {"low.publish.tight.copy",  "low.publish.awake.copy",
                                       "low.publish.alone.copy",  "low.publish.paced.iceoryx",
                                       "low.publish.paced.futex", "low.delivery.iceoryx",
                                       "low.delivery.futex"};
constexpr const char* kCostIds[] = {
    "low.system_calls.publish.alone",  "low.allocations.publish.alone",
    "low.system_calls.publish.awake",  "low.allocations.publish.awake",
    "low.system_calls.observe.awake",  "low.allocations.observe.awake",
    "low.system_calls.publish.asleep", "low.allocations.publish.asleep",
    "low.system_calls.observe.asleep", "low.allocations.observe.asleep"};
constexpr const char* kExchangeIds[] = {"low.observe.futex", "low.react.futex",
                                        "low.observe.tight.futex", "low.react.tight.futex"};
constexpr const char* kLoopIds[] = {"low.loop.lost", "low.loop.in_time", "low.loop.period",
                                    "low.loop.processor"};

constexpr Case kCases[] = {{"publish", measurePublication, false, kPublishIds},
                           {"cost", measureLowLevelCost, false, kCostIds},
                           {"exchange", measureExchange, false, kExchangeIds},
                           {"loop", measureLoop, true, kLoopIds}};

}  // namespace

std::span<const Case> lowLevelCases() {
  return kCases;
}

Ends startLowLevel(const Child::Environment& environment) {
  const Json::Value none(Json::objectValue);
  Child board = startRole("stand-in-board", none);
  return {std::move(board), startRole("low-level-client", none, environment)};
}

}  // namespace bench
