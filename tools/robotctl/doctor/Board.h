#pragma once

#include "doctor/Finding.h"

namespace robotctl::doctor {

/// What the library asks of a robot board before it starts there: the shared-memory daemon with its
/// readiness marker, and the lock that one application holds. The lock is looked at, never taken.
[[nodiscard]] Findings checkBoard();

}  // namespace robotctl::doctor
