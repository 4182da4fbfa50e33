#pragma once

#include <spdlog/sinks/base_sink.h>

#include <cstdio>
#include <mutex>

namespace Pexal {

/// Writes to standard output. spdlog's own sink flushes every line, whatever the flush level is.
class ConsoleSink final : public spdlog::sinks::base_sink<std::mutex> {
 private:
  void sink_it_(const spdlog::details::log_msg& message) override {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
  void flush_() override { std::fflush(stdout); }
};

}  // namespace Pexal
