#pragma once

#include <string>
#include <vector>

#include "sdk_process.h"

namespace sdk_test {

/// A terminal window with a shell command in it, by tmux. Behind the command its exit status
/// appears ("status 0") and "icanon" or "-icanon", how the terminal was left. Used by one thread.
class TerminalWindow {
 public:
  TerminalWindow(int columns, int rows, const std::string& command);
  ~TerminalWindow();
  TerminalWindow(const TerminalWindow&) = delete;
  TerminalWindow& operator=(const TerminalWindow&) = delete;

  void resize(int columns, int rows) const;
  /// One key as tmux names it: "w", "C-c", "Escape".
  void type(const std::string& key) const;
  /// What is to be seen, line by line.
  [[nodiscard]] std::string screen() const;
  [[nodiscard]] bool shows(const std::string& text) const;
  /// The same for a regular expression.
  [[nodiscard]] bool matches(const std::string& pattern) const;
  /// As a picture with its colours, in the terminal's own language.
  [[nodiscard]] std::string colouredScreen() const { return tmux({"capture-pane", "-e", "-p"}); }
  /// Number of the command's process; it must have been started with `exec` or alone.
  [[nodiscard]] int commandPid() const;
  /// The window is gone at once, with no chance for a last word to what runs in it.
  void kill();

 private:
  [[nodiscard]] std::string tmux(const std::vector<std::string>& words) const;

  const std::string name_;
  const std::string pidFile_;
  Process server_;
};

}  // namespace sdk_test
