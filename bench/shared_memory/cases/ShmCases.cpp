#include "shared_memory/cases/ShmCases.h"

#include <unistd.h>

#include <fstream>
#include <stdexcept>

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

#ifdef BENCH_ICEORYX
/// As much as the benchmark needs, in the private /tmp.
std::string daemonConfiguration() {
  const std::string path = "/tmp/bench_roudi_" + std::to_string(::getpid()) + ".toml";
  std::ofstream file(path);
  file << "[general]\nversion = 1\n[[segment]]\n[[segment.mempool]]\nsize = 1024\ncount = 4096\n";
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
  return path;
}

Child startIceoryxRole(const char* role, const std::string& channel, bool attended,
                       const Child::Environment& environment) {
  return Child::role(BENCH_ICEORYX, role, object({{"channel", channel}, {"attended", attended}}),
                     environment);
}
#endif

}  // namespace

std::span<const Case> shmCases() {
  return kCases;
}

Ends startOwn(const std::string& channel, const Child::Environment& environment) {
  const Json::Value arguments = object({{"channel", channel}});
  Child reader = startRole("own-reader", arguments);
  return {std::move(reader), startRole("own-writer", arguments, environment)};
}

Ends startFutex() {
  const Json::Value none(Json::objectValue);
  Child reader = startRole("futex-reader", none);
  return {std::move(reader), startRole("futex-writer", none)};
}

#ifdef BENCH_ICEORYX
std::optional<Iceoryx> Iceoryx::start() {
  if (::access(BENCH_ROUDI, X_OK) != 0) return std::nullopt;
  return Iceoryx(
      Child::server({BENCH_ROUDI, "-l", "error", "-c", daemonConfiguration()}, "RouDi is ready"));
}

Ends Iceoryx::ends(const std::string& channel, const Child::Environment& environment) const {
  Child reader = startIceoryxRole("iceoryx-reader", channel, true, {});
  return {std::move(reader), startIceoryxRole("iceoryx-writer", channel, true, environment)};
}

Child Iceoryx::lonelyWriter(const std::string& channel,
                            const Child::Environment& environment) const {
  return startIceoryxRole("iceoryx-writer", channel, false, environment);
}
#else
std::optional<Iceoryx> Iceoryx::start() {
  return std::nullopt;
}

Ends Iceoryx::ends(const std::string&, const Child::Environment&) const {
  throw std::runtime_error(kNoIceoryx);
}

Child Iceoryx::lonelyWriter(const std::string&, const Child::Environment&) const {
  throw std::runtime_error(kNoIceoryx);
}
#endif

}  // namespace bench
