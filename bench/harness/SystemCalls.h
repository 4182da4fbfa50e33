#pragma once

#include <cstdint>

#include "harness/Child.h"

namespace bench {

/// Encloses, in pairs, what countSystemCalls counts. It is a system call itself, one that nothing
/// measured here makes, and isn't counted.
void markSystemCalls() noexcept;

struct Traced {
  Json::Value answer;
  std::uint64_t systemCalls = 0;
};
/// Has `child` carry out `command` and counts, with ptrace, the system calls that its main thread
/// makes between `pairs` pairs of marks. Throws std::runtime_error when tracing isn't permitted or
/// the marks don't come.
[[nodiscard]] Traced countSystemCalls(Child& child, const Json::Value& command,
                                      std::uint32_t pairs);

}  // namespace bench
