#include "harness/Collector.h"

#include <algorithm>

#include "harness/Allocations.h"

namespace bench {
void Collector::begin(std::uint32_t skip, std::uint32_t count) {
  full_.clear();
  wanted_ = std::min<std::int64_t>(count, static_cast<std::int64_t>(values_.size()));
  next_ = -static_cast<std::int64_t>(skip);
}

void Collector::put(std::int64_t latencyNs) noexcept {
  const std::int64_t index = next_;
  const std::int64_t wanted = wanted_;
  if (index == kIdle || index >= wanted) return;
  if (index >= 0) values_[static_cast<std::size_t>(index)] = latencyNs;
  if (index == 0) allocationsAtFirst_ = allocationsOfThread();
  allocationsAtLast_ = allocationsOfThread();
  next_ = index + 1;
  if (index + 1 == wanted) full_.post();
}

bool Collector::await(std::uint32_t timeoutMs) {
  return full_.wait(timeoutMs);
}

std::vector<std::int64_t> Collector::end() {
  const std::int64_t count = std::max<std::int64_t>(next_.exchange(kIdle), 0);
  return {values_.begin(), values_.begin() + count};
}

double Collector::threadAllocations() const {
  const std::int64_t samples = wanted_ - 1;
  if (samples < 1) return 0;
  return static_cast<double>(allocationsAtLast_ - allocationsAtFirst_) /
         static_cast<double>(samples);
}

}  // namespace bench
