#pragma once

#include <sys/types.h>

#include <span>

namespace bench {

/// Seconds of processor time that the processes have used so far, by /proc/PID/stat. Throws
/// std::runtime_error when one of them is gone.
[[nodiscard]] double cpuSecondsOf(std::span<const pid_t> processes);

/// Seconds that all processors together were busy and idle so far, by /proc/stat.
struct MachineTime {
  double busy = 0;
  double idle = 0;
};
[[nodiscard]] MachineTime machineTime();

}  // namespace bench
