#include "cases/HostCases.h"

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
constexpr const char* kSimulationIds[] = {
    "simulation.publish.raw", "simulation.publish.tight.raw", "simulation.publish.allocations",
    "simulation.observed.raw", "simulation.observed.raw_caller"};
constexpr const char* kBodyIds[] = {
    "body.step.1",   "body.step.4",    "body.step.16",          "body.second.1",
    "body.second.4", "body.second.16", "body.process.standing", "body.process.walking"};
constexpr const char* kSoakIds[] = {"soak.query_motion_state.raw"};

constexpr Case kCases[] = {{"rpc", measureRoundTrip, false, kRoundTripIds},
                           {"observed", measureObserved, false, kObservedIds},
                           {"start", measureStart, false, kStartIds},
                           {"fleet", measureFleet, false, kFleetIds},
                           {"processor", measureProcessor, false, kProcessorIds},
                           {"simulation", measureSimulation, false, kSimulationIds},
                           {"body", measureBody, false, kBodyIds},
                           {"soak", measureSoak, true, kSoakIds}};

}  // namespace

std::span<const Case> hostCases() {
  return kCases;
}

Child startRobot(const std::string& device, const char* body) {
  return Child::server({VIRTUAL_ROBOT, "--device-id", device, "--body", body, "--interface", "lo",
                        "--domain", std::to_string(kHostDomain)},
                       "ready:");
}

}  // namespace bench
