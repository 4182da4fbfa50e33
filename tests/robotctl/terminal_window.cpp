#include "terminal_window.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "sdk_support.h"

namespace sdk_test {
namespace {

const std::vector<std::string> kTmux{"/usr/bin/env",  "LC_ALL=C.UTF-8", "TERM=xterm-256color",
                                     "SHELL=/bin/sh", "tmux",           "-u"};

std::vector<std::string> command(std::vector<std::string> words) {
  words.insert(words.begin(), kTmux.begin(), kTmux.end());
  return words;
}

std::string freshName() {
  static int count = 0;
  return "window" + std::to_string(getpid()) + "-" + std::to_string(++count);
}

}  // namespace

TerminalWindow::TerminalWindow(int columns, int rows, const std::string& shellCommand)
    : name_(freshName()),
      pidFile_("/tmp/" + name_ + ".pid"),
      server_(command({"-L", name_, "-f", "/dev/null", "-D"})) {
  const std::string script = "ulimit -c 0; trap : INT; echo before; sh -c 'echo $$ >" + pidFile_ +
                             "; exec " + shellCommand +
                             "'; echo status $?; stty -a | grep -ow -- '-*icanon'; exec cat";
  const auto opened = [&] {
    return tmux({"new-session", "-d", "-s", "s", "-x", std::to_string(columns), "-y",
                 std::to_string(rows), script})
        .empty();
  };
  if (!waitUntil(opened, kLimitMs)) throw std::runtime_error("no tmux: " + server_.output());
}

TerminalWindow::~TerminalWindow() {
  if (!server_.finish(0)) static_cast<void>(tmux({"kill-server"}));
  std::remove(pidFile_.c_str());
}

std::string TerminalWindow::tmux(const std::vector<std::string>& words) const {
  std::vector<std::string> all{"-N", "-L", name_};  // -N: the server is ours
  all.insert(all.end(), words.begin(), words.end());
  Process client(command(all));
  static_cast<void>(client.finish(kLimitMs));
  return client.output();
}

void TerminalWindow::resize(int columns, int rows) const {
  static_cast<void>(
      tmux({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)}));
}

void TerminalWindow::type(const std::string& key) const {
  static_cast<void>(tmux({"send-keys", key}));
}

std::string TerminalWindow::screen() const {
  return tmux({"capture-pane", "-p"});
}

bool TerminalWindow::shows(const std::string& text) const {
  return waitUntil([&] { return screen().find(text) != std::string::npos; }, kLimitMs);
}

bool TerminalWindow::matches(const std::string& pattern) const {
  const std::regex wanted(pattern);
  return waitUntil([&] { return std::regex_search(screen(), wanted); }, kLimitMs);
}

int TerminalWindow::commandPid() const {
  int pid = 0;
  static_cast<void>(
      waitUntil([&] { return static_cast<bool>(std::ifstream(pidFile_) >> pid); }, kLimitMs));
  return pid;
}

void TerminalWindow::kill() {
  server_.signal(SIGKILL);
  static_cast<void>(server_.finish(kLimitMs));
}

}  // namespace sdk_test
