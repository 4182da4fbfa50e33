#include "shared_memory/cases/ShmCases.h"

#include <utility>

namespace bench {
namespace {

constexpr const char* kChannelIds[] = {"shm.write.paced.iceoryx", "shm.write.paced.futex",
                                       "shm.write.tight.iceoryx", "shm.write.awake.iceoryx",
                                       "shm.write.alone.iceoryx", "shm.delivery.futex",
                                       "shm.delivery.iceoryx"};
constexpr const char* kCostIds[] = {"shm.system_calls.alone",  "shm.allocations.alone",
                                    "shm.system_calls.awake",  "shm.allocations.awake",
                                    "shm.system_calls.asleep", "shm.allocations.asleep"};
constexpr const char* kBufferIds[] = {"shm.buffer.712.memcpy", "shm.buffer.76.memcpy"};
constexpr const char* kTornIds[] = {"shm.buffer.torn"};

constexpr Case kCases[] = {{"channel", measureChannel, false, kChannelIds},
                           {"cost", measureCost, false, kCostIds},
                           {"buffer", measureBuffer, false, kBufferIds},
                           {"torn", measureTorn, false, kTornIds}};

}  // namespace

std::span<const Case> shmCases() {
  return kCases;
}

Ends startOwn(const std::string& channel, const Child::Environment& environment) {
  const Json::Value arguments = object({{"channel", channel}});
  Child reader = startRole("own-reader", arguments);
  return {std::move(reader), startRole("own-writer", arguments, environment)};
}

}  // namespace bench
