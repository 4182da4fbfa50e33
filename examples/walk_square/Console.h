#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace walk_square {

/// Standard output as a person or a file reads it: lines that stay, and below them one live line.
/// On a terminal the live line is redrawn in place; in a pipe it becomes a plain line every 2 s.
///
/// Any thread may call any operation: the library's log arrives on the library's threads.
class Console {
 public:
  Console();

  void line(const std::string& text);
  void live(const std::string& text);
  void warning(const std::string& text);

 private:
  void clearLive();

  std::mutex mutex_;  // guards everything below and the two streams
  const bool terminal_;
  bool liveShown_ = false;
  std::chrono::steady_clock::time_point nextPlain_{};
};

}  // namespace walk_square
