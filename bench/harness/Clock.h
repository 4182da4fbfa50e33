#pragma once

#include <cstdint>

namespace bench {

/// The clock of every measurement: CLOCK_MONOTONIC, the one that the platform's CTime reads in
/// microseconds. All processes of a machine read the same.
[[nodiscard]] std::int64_t nowNs() noexcept;
/// Returns at once when that time has passed.
void sleepUntilNs(std::int64_t deadlineNs) noexcept;

}  // namespace bench
