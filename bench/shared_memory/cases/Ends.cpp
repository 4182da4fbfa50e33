#include "shared_memory/cases/Ends.h"

#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace bench {
#ifdef BENCH_ICEORYX
namespace {

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

}  // namespace
#endif

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
