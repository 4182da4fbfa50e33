#pragma once

#include <atomic>
#include <cstdarg>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pbase/CMutex.h"
#include "pbase/ILogger.h"

namespace spdlog {
class logger;
}

namespace Pexal {

/// Threading contract: any thread, from inside sinks too. Lock order: none is taken inside another,
/// and none is held while a sink or the console runs.
class Logger final : public ILogger {
 public:
  Logger();

  void configure(const char* name, std::uint32_t maxLength) override;
  void setImmediateFlush(int value) override;
  void enableConsole(bool enabled) override;
  SinkId addSink(Sink sink) override;
  void removeSink(SinkId id) override;
  void log(std::uint32_t level, const char* tag, const char* format, ...) override
      __attribute__((format(printf, 4, 5)));

 private:
  struct SinkEntry;
  struct Call;
  using SinkList = std::vector<std::shared_ptr<SinkEntry>>;

  void write(std::uint32_t level, const char* tag, const char* format, std::va_list arguments);
  void writeConsole(std::uint32_t level, const char* tag, std::string_view text);
  static void deliver(SinkEntry& entry, std::uint32_t level, const std::string& text);
  void makeConsole(const std::string& name);

  std::atomic<std::uint32_t> maxLength_;
  std::atomic<bool> consoleEnabled_{true};

  PBase::CMutex mutex_;  // guards everything below
  bool immediateFlush_ = true;
  std::shared_ptr<spdlog::logger> console_;
  std::shared_ptr<const SinkList> sinks_;  // replaced, never changed
  SinkId lastSinkId_ = 0;
};

}  // namespace Pexal
