#pragma once

#include <cstdint>

#include "pbase/ILogger.h"

/// One line of the SDK's log. `unit` is the source unit's name; `text` is a literal that goes on
/// where "[unit:line]" ends (some lines start with a blank). Needs the platform's log and nothing
/// of the SDK, so every room of src/ may use it.
#define MOTION_LOG(unit, level, text, ...)                                             \
  ::Pexal::ILogger::instance()->log((level), "MotionSdk", "[%s:%d]" text "\n", (unit), \
                                    __LINE__ __VA_OPT__(, ) __VA_ARGS__)

namespace orvane::RobotSdk::level {

inline constexpr std::uint32_t kInfo = 1;           ///< progress
inline constexpr std::uint32_t kWarning = 3;        ///< refusals, rejected data, transient retries
inline constexpr std::uint32_t kError = 4;          ///< failures
inline constexpr std::uint32_t kConfiguration = 5;  ///< configuration warnings

}  // namespace orvane::RobotSdk::level
