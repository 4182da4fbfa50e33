#include "harness/ProcStat.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

double secondsPerTick() {
  static const double seconds = 1.0 / static_cast<double>(::sysconf(_SC_CLK_TCK));
  return seconds;
}

}  // namespace

double cpuSecondsOf(std::span<const pid_t> processes) {
  constexpr int kFieldsToUserTime = 11;  // behind the name, which may hold blanks
  double ticks = 0;
  for (const pid_t process : processes) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    if (!std::getline(file, text)) throw std::runtime_error("a measured process is gone");
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int i = 0; i < kFieldsToUserTime; ++i) fields >> skipped;
    double user = 0;
    double system = 0;
    if (!(fields >> user >> system)) throw std::runtime_error("/proc/PID/stat can't be read");
    ticks += user + system;
  }
  return ticks * secondsPerTick();
}

MachineTime machineTime() {
  std::ifstream file("/proc/stat");
  std::string cpu;
  double user = 0;
  double nice = 0;
  double system = 0;
  double idle = 0;
  double ioWait = 0;
  double irq = 0;
  double softIrq = 0;
  if (!(file >> cpu >> user >> nice >> system >> idle >> ioWait >> irq >> softIrq)) {
    throw std::runtime_error("/proc/stat can't be read");
  }
  return {(user + nice + system + irq + softIrq) * secondsPerTick(),
          (idle + ioWait) * secondsPerTick()};
}

}  // namespace bench
