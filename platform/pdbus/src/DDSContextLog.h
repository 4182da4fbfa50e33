#pragma once

#include "pbase/ILogger.h"

/// One line of this library's log: "[unit:line]" and the text. Levels as in ILogger.
#define PDBUS_LOG(level, unit, format, ...)                                     \
  ::Pexal::ILogger::instance()->log((level), "PDBus", "[%s:%d]" format, (unit), \
                                    __LINE__ __VA_OPT__(, ) __VA_ARGS__)
