// bench_shm: the benchmarks of the shared memory on the robot's board. To be run where /dev/shm and
// /tmp are private: tools/isolated bench_shm.

#include "harness/Program.h"
#include "shared_memory/cases/ShmCases.h"
#include "shared_memory/peers/Buffers.h"
#include "shared_memory/peers/FutexChannel.h"
#include "shared_memory/peers/OwnChannel.h"

namespace {

using namespace bench;

constexpr RoleEntry kRoles[] = {
    {"own-writer", makeRole<OwnWriter>},         {"own-reader", makeRole<OwnReader>},
    {"futex-writer", makeRole<FutexWriter>},     {"futex-reader", makeRole<FutexReader>},
    {"buffer-writer", makeRole<BufferWriter>},   {"buffer-reader", makeRole<BufferReader>},
    {"buffer-checker", makeRole<BufferChecker>}, {"plain-copier", makeRole<PlainCopier>}};

}  // namespace

int main(int argc, char** argv) {
  return bench::runProgram(
      {"bench_shm", "Shared memory on the robot's board",
       "Measures the library's shared memory against iceoryx and memcpy; docs/benchmarks.md.",
       bench::shmCases(), kRoles},
      argc, argv);
}
