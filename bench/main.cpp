// bench_host: the benchmarks of the way from an external host to the robot. To be run where only
// loopback is: tools/isolated bench_host.

#include "cases/HostCases.h"
#include "harness/Program.h"
#include "peers/Observers.h"
#include "peers/RawPing.h"
#include "peers/RpcPair.h"
#include "peers/SdkClient.h"
#include "peers/Simulation.h"
#include "peers/StandInRobot.h"
#include "peers/Walker.h"

namespace {

using namespace bench;

constexpr RoleEntry kRoles[] = {{"raw-server", makeRole<RawServer>},
                                {"raw-client", makeRole<RawClient>},
                                {"raw-starter", makeRole<RawStarter>},
                                {"raw-observer", makeRole<RawObserver>},
                                {"rpc-server", makeRole<RpcServerRole>},
                                {"rpc-client", makeRole<RpcClientRole>},
                                {"sdk-client", makeRole<SdkClient>},
                                {"sdk-starter", makeRole<SdkStarter>},
                                {"sdk-observer", makeRole<SdkObserver>},
                                {"stand-in-robot", makeRole<StandInRobot>},
                                {"sdk-blocked", makeRole<BlockedObserver>},
                                {"simulator", makeRole<Simulator>},
                                {"sdk-commander", makeRole<SdkCommander>},
                                {"raw-commander", makeRole<RawCommander>},
                                {"sdk-requirer", makeRole<SdkRequirer>},
                                {"raw-requirer", makeRole<RawRequirer>},
                                {"sdk-walker", makeRole<Walker>}};

}  // namespace

int main(int argc, char** argv) {
  return bench::runProgram(
      {"bench_host", "From an external host to the robot",
       "Measures the library against raw libddsc and gRPC; docs/benchmarks.md.", bench::hostCases(),
       kRoles},
      argc, argv);
}
