#pragma once

#include <cstdint>

namespace bench {

/// Allocations so far, of the calling thread and of the process; 0 when the counting library isn't
/// preloaded.
[[nodiscard]] std::uint64_t allocationsOfThread() noexcept;
[[nodiscard]] std::uint64_t allocationsOfProcess() noexcept;

}  // namespace bench
