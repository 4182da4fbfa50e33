#pragma once

#include <cstdint>
#include <functional>

#include "pbase/Export.h"

namespace Pexal {

/// The process's logger.
///
/// Levels are numbers: 1 information, 3 warning, 4 error, 5 configuration warning; 0 and 2 are
/// reserved for traces and notices. A record is formatted once, on the calling thread, and handed
/// to the console (when enabled) and to every sink, synchronously, on that thread, with no lock
/// held that a sink could need: a sink may log; such a record goes to the console and the other
/// sinks, not to the sink that logged it. What a sink throws is swallowed. errno is left as it was.
/// The instance lives until the process ends, static destruction included. Every operation may be
/// called from any thread, sinks included.
class PEXAL_API ILogger {
 public:
  /// Gets (level, text, length); the text is NUL-terminated, `length` bytes long without the NUL,
  /// exactly as formatted (with its line end).
  using Sink = std::function<void(std::uint32_t level, const char* text, int length)>;
  using SinkId = std::uint64_t;

  /// Never null.
  static ILogger* instance();

  /// `name` is shown in console lines (null: unchanged). `maxLength` bounds one record in bytes (64
  /// to 1 Mi, 4096 before this call); longer ones are cut, a line keeping its line end.
  virtual void configure(const char* name, std::uint32_t maxLength) = 0;
  /// 1 (before this call too): console lines are flushed one by one; 0: by level 3 and above only.
  virtual void setImmediateFlush(int value) = 0;
  /// Console lines go to standard output as "[time] [name] [level] [tag] text". On before this
  /// call.
  virtual void enableConsole(bool enabled) = 0;
  virtual SinkId addSink(Sink sink) = 0;
  /// When this returns the sink is not running on any other thread and never runs again; it waits
  /// for calls in progress. Called from inside the sink itself it returns at once (the sink doesn't
  /// run again after that call). Two sinks must not remove each other at the same time.
  virtual void removeSink(SinkId id) = 0;
  virtual void log(std::uint32_t level, const char* tag, const char* format, ...)
      __attribute__((format(printf, 4, 5))) = 0;

 protected:
  ~ILogger() = default;
};

}  // namespace Pexal
