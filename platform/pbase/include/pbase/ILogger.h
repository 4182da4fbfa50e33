#pragma once

#include <cstdint>
#include <functional>

#include "pbase/Export.h"

namespace Pexal {

/// The process's logger.
///
/// Levels are numbers: 1 information, 3 warning, 4 error, 5 configuration warning; 0 and 2 are
/// reserved for traces and notices. A record is formatted once, on the calling thread, and handed to
/// the console (when enabled) and to every sink, synchronously, on that thread, with no lock held
/// that a sink could need: a sink may log. What a sink throws is swallowed. The instance lives until
/// the process ends, static destruction included.
class PEXAL_API ILogger {
 public:
  /// Gets (level, text, length); the text is NUL-terminated, `length` bytes long without the NUL,
  /// exactly as formatted (with its line end).
  using Sink = std::function<void(std::uint32_t level, const char* text, int length)>;
  using SinkId = std::uint64_t;

  /// Never null.
  static ILogger* instance();

  /// `name` is shown in console lines. `maxLength` bounds one record in bytes; longer ones are cut.
  virtual void configure(const char* name, std::uint32_t maxLength) = 0;
  /// 1: console lines are flushed one by one; 0: by level 3 and above only.
  virtual void setImmediateFlush(int value) = 0;
  /// Console lines go to standard output as "[time] [name] [level] [tag] text".
  virtual void enableConsole(bool enabled) = 0;
  virtual SinkId addSink(Sink sink) = 0;
  /// When this returns the sink is not running on any other thread and never runs again. Called from
  /// inside the sink itself it returns at once (the sink doesn't run again after that call).
  virtual void removeSink(SinkId id) = 0;
  virtual void log(std::uint32_t level, const char* tag, const char* format, ...)
      __attribute__((format(printf, 4, 5))) = 0;

 protected:
  ~ILogger() = default;
};

}  // namespace Pexal
