#include "cases/Case.h"

#include <utility>

namespace bench {
namespace {

constexpr const char* kRoundTripIds[] = {
    "rpc.query_motion_state.raw", "rpc.query_motion_state.grpc",
    "rpc.query_motion_state.raw_waitset", "rpc.layer.raw", "rpc.layer_tiny.raw"};
constexpr const char* kObservedIds[] = {"observed.motion.raw", "observed.allocations",
                                        "observed.thread_allocations", "observed.blocked.sensor",
                                        "observed.blocked.request"};
constexpr const char* kStartIds[] = {"start.discovery.raw"};
constexpr const char* kFleetIds[] = {"fleet.1", "fleet.2"};
constexpr const char* kProcessorIds[] = {"processor.idle", "processor.observing"};
constexpr const char* kSoakIds[] = {"soak.query_motion_state.raw"};

constexpr Case kCases[] = {{"rpc", measureRoundTrip, false, kRoundTripIds},
                           {"observed", measureObserved, false, kObservedIds},
                           {"start", measureStart, false, kStartIds},
                           {"fleet", measureFleet, false, kFleetIds},
                           {"processor", measureProcessor, false, kProcessorIds},
                           {"soak", measureSoak, true, kSoakIds}};

}  // namespace

std::span<const Case> allCases() {
  return kCases;
}

Child startRobot(const std::string& device) {
  return Child::server({VIRTUAL_ROBOT, "--device-id", device, "--interface", "lo", "--domain",
                        std::to_string(kHostDomain)},
                       "ready:");
}

Child startRole(const std::string& name, const Json::Value& arguments,
                const Child::Environment& environment) {
  return Child::role("/proc/self/exe", name, arguments, environment);
}

Json::Value object(std::initializer_list<std::pair<const char*, Json::Value>> members) {
  Json::Value result(Json::objectValue);
  for (const auto& [key, value] : members) result[key] = value;
  return result;
}

void interleave(std::span<Contender> contenders, const Json::Value& command, std::uint32_t rounds) {
  for (Contender& contender : contenders) static_cast<void>(contender.child.ask(command));
  for (std::uint32_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      Contender& contender = contenders[(round + i) % contenders.size()];
      append(contender.ns, contender.child.ask(command)["ns"], 1);
    }
  }
}

std::vector<double> scaled(const std::vector<double>& values, double scale) {
  std::vector<double> result(values);
  for (double& value : result) value *= scale;
  return result;
}

}  // namespace bench
