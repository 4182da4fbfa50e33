#pragma once

#include <cstdint>
#include <optional>

#include "shared_memory/cases/Ends.h"

namespace bench {

/// What an operation of a WriterRole asks of the system, counted: system calls by ptrace,
/// allocations by the preloaded library. Per operation.
struct Cost {
  double systemCalls = 0;
  double allocations = 0;
};

/// Fewer records than a channel has chunks.
inline constexpr std::uint32_t kPending = 24;

/// A "marked" for a WriterRole.
[[nodiscard]] Json::Value marked(std::uint32_t count, std::uint32_t intervalUs);
/// Of "marked", or a command like it, which the writer carries out.
[[nodiscard]] Cost costOf(Child& writer, const Json::Value& command);
/// The same with the reader busy in its callback; of at most kPending operations.
[[nodiscard]] Cost costWhileAwake(Ends& ends, const Json::Value& command);

/// A row of a number alone.
[[nodiscard]] Row counted(Row row, double value, std::optional<double> wanted);

}  // namespace bench
