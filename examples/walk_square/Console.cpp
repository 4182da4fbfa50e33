#include "Console.h"

#include <unistd.h>

#include <iostream>

namespace walk_square {

Console::Console() : terminal_(isatty(STDOUT_FILENO) == 1) {}

void Console::line(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  clearLive();
  std::cout << text << '\n' << std::flush;
}

void Console::live(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (terminal_) {
    std::cout << "\r\033[K" << text << std::flush;
    liveShown_ = true;
    return;
  }
  const auto now = std::chrono::steady_clock::now();
  if (now < nextPlain_) return;
  nextPlain_ = now + std::chrono::seconds(2);
  std::cout << text << '\n' << std::flush;
}

void Console::warning(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  clearLive();
  std::cerr << text << '\n' << std::flush;
}

void Console::clearLive() {
  if (!liveShown_) return;
  std::cout << "\r\033[K" << std::flush;
  liveShown_ = false;
}

}  // namespace walk_square
