#include "LoopStatistics.h"

#include <algorithm>
#include <cstdio>

namespace joint_loop {

void LoopStatistics::begin() {
  const auto now = Clock::now();
  if (former_ != Clock::time_point{} && periodsUs_.size() < periodsUs_.capacity()) {
    periodsUs_.push_back(std::chrono::duration<double, std::micro>(now - former_).count());
  }
  former_ = now;
}

void LoopStatistics::print() {
  if (periodsUs_.empty()) return;
  std::sort(periodsUs_.begin(), periodsUs_.end());
  const auto at = [this](double share) {
    return periodsUs_[static_cast<std::size_t>(share * static_cast<double>(periodsUs_.size() - 1))];
  };
  std::printf("passes           %zu\n", periodsUs_.size() + 1);
  std::printf("period           p50 %.0f us, p99 %.0f us, max %.0f us\n", at(0.5), at(0.99), at(1));
  std::printf("records lost     %zu (none came in time)\n", lost_);
  std::printf("commands refused %zu\n", refused_);
}

}  // namespace joint_loop
