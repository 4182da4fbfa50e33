#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/Signals.h"
#include "terminal/Keys.h"
#include "terminal/Screen.h"
#include "terminal/Terminal.h"

namespace robotctl {

/// Terminal, keys and pictures put together: the loop of a full-screen command waits here and
/// draws here. Throws Interrupted when a signal asks the program to end, and also, as SIGHUP, when
/// the terminal is gone.
class LiveScreen {
 public:
  explicit LiveScreen(const Interrupts& interrupts);

  /// Waits until a key, a new size, a message or `otherFd` (-1: none) comes, until `deadlineMs`
  /// at the latest (Clock.h). Returns the keys.
  [[nodiscard]] std::vector<Key> wait(std::uint64_t deadlineMs, int otherFd = -1);
  /// Shows the picture for the size that the terminal has now. Nothing while the terminal takes no
  /// output.
  void show(const std::function<Canvas(Size)>& draw);
  /// Lines that something wrote to standard error.
  [[nodiscard]] std::vector<std::string> takeMessages();

 private:
  void pollOnce(std::uint64_t deadlineMs, int otherFd) const;

  const Interrupts& interrupts_;
  Terminal terminal_;
  Screen screen_;
  KeyDecoder decoder_;
};

}  // namespace robotctl
