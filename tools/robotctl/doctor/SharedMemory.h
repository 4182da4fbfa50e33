#pragma once

#include "core/Signals.h"
#include "doctor/Finding.h"
#include "doctor/RobotSearch.h"

namespace robotctl::doctor {

/// The shared memory of a robot board: /dev/shm itself, the buffers of observed state (readable, of
/// this version, written by somebody who lives), and the channels' files. Nothing is written, and
/// no place of a channel is taken. `robotAnswers`: somebody should be writing. Throws Interrupted.
[[nodiscard]] Findings checkSharedMemory(bool robotAnswers, const Interrupts& interrupts,
                                         LogCapture& log);

}  // namespace robotctl::doctor
