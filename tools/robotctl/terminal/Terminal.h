#pragma once

#include <string>
#include <string_view>

#include "terminal/Canvas.h"

namespace robotctl {

/// The terminal as a whole screen and a keyboard, while this lives: other screen, no cursor, keys
/// one by one and unechoed. Ctrl-C still sends SIGINT, Ctrl-Z nothing.
///
/// It is put back as it was when this is destroyed, when exit() is called, and when the program
/// dies of a signal that can be caught (a crash, an abort; SIGQUIT too). After kill -9 the shell's
/// `reset` helps.
///
/// Nothing here blocks but the destructor, which gives a slow terminal 300 ms: a terminal that
/// takes no more output (Ctrl-S, a stalled line) gets no new pictures until it does. What the
/// program or a library writes to standard error meanwhile would spoil the picture; it is kept and
/// `takeMessages` hands it out, and what nobody took is written when the terminal is put back.
///
/// One object in a process, used by one thread.
class Terminal {
 public:
  /// Throws Failure (kUsage) when the terminal can't be had.
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Standard output (and with `keys` standard input) is a terminal that can place its cursor.
  [[nodiscard]] static bool usable(bool keys);

  [[nodiscard]] Size size() const;
  /// For poll(): readable when there is input, or none ever again.
  [[nodiscard]] int inputFd() const { return fd_; }
  /// For poll(): readable when the size may have changed, or the program goes on after a stop.
  [[nodiscard]] int changeFd() const;
  /// Reads `changeFd` empty. True: the screen must be drawn anew.
  [[nodiscard]] bool takeChange();
  /// For poll(): readable when `takeMessages` has something.
  [[nodiscard]] int messagesFd() const { return messages_; }
  [[nodiscard]] std::string takeMessages();

  /// What was typed; "" when nothing. Afterwards `gone()` tells whether the terminal has vanished.
  [[nodiscard]] std::string read();
  /// The window was closed or the line hung up.
  [[nodiscard]] bool gone() const { return gone_; }

  /// True: all that was given to `write` before is out, another picture is welcome.
  [[nodiscard]] bool ready();
  /// Sends as much as the terminal takes, and the rest with the next `ready`.
  void write(std::string_view bytes);

 private:
  void captureMessages();
  void leave();

  int fd_ = -1;
  int messages_ = -1;
  std::string unsent_;
  bool gone_ = false;
};

}  // namespace robotctl
