#pragma once

#include "doctor/Finding.h"

namespace robotctl::doctor {

/// What a control loop may ask of this system: a real-time priority, locked memory, the kernel's
/// kind of preemption, the processors' governor. The first two are tried, in a child process, so
/// that this one stays as it is; call it before there are other threads.
[[nodiscard]] Findings checkRealTime(bool onBoard);

}  // namespace robotctl::doctor
