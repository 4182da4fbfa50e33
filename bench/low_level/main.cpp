// bench_low: the benchmarks of the low-level client on the robot's board. To be run on one, without
// its shared-memory daemon: tools/board-sandbox --alone --without-daemon --marker bench_low.

#include "harness/Program.h"
#include "low_level/cases/LowLevelCases.h"
#include "low_level/peers/BoardRobot.h"
#include "low_level/peers/LowLevelClient.h"
#include "low_level/peers/PlainCopy.h"
#include "low_level/peers/StandInBoard.h"

namespace {

using namespace bench;

constexpr RoleEntry kRoles[] = {{"low-level-client", makeRole<LowLevelClient>},
                                {"stand-in-board", makeRole<StandInBoard>},
                                {"joint-holder", makeRole<JointHolder>},
                                {"board-robot", makeRole<BoardRobot>},
                                {"bare-loop", makeRole<BareLoop>},
                                {"plain-copy", makeRole<PlainCopy>},
                                {"futex-writer", makeRole<FutexWriter>},
                                {"futex-reader", makeRole<FutexReader>},
                                {"futex-asker", makeRole<FutexAsker>},
                                {"futex-answerer", makeRole<FutexAnswerer>}};

}  // namespace

int main(int argc, char** argv) {
  return bench::runProgram(
      {"bench_low", "The low-level client on the robot's board",
       "Measures the low-level client against iceoryx, a bare futex and memcpy; "
       "docs/benchmarks.md.",
       bench::lowLevelCases(), kRoles},
      argc, argv);
}
