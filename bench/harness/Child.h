#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace bench {

/// A process of its own that takes part in a measurement. It dies with the process that started it.
///
/// Threading: one thread. Every operation that waits has a deadline and throws std::runtime_error
/// when it passes, or when the child fails.
class Child {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  /// A program that serves until it gets a SIGTERM, ready once it has printed a line that begins
  /// with `readyLine`.
  static Child server(std::vector<std::string> command, const std::string& readyLine);
  /// `program --role NAME ARGUMENTS`: a Role. Ready when this returns.
  static Child role(const std::string& program, const std::string& name,
                    const Json::Value& arguments, const Environment& environment = {});

  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  /// Has the process end and waits for it, 5 s at most; then it is killed.
  ~Child();

  /// Has a server end, and waits for the line that begins with `lineStart`, which it prints then.
  [[nodiscard]] std::string lastWords(const std::string& lineStart);
  /// Has the process end, without waiting for it; for many of them before the destructor of each.
  void beginEnd();
  /// Sends a command to a role.
  void send(const Json::Value& command);
  /// Its answer to the command sent longest ago.
  [[nodiscard]] Json::Value receive(std::uint32_t timeoutMs = kAnswerMs);
  [[nodiscard]] Json::Value ask(const Json::Value& command, std::uint32_t timeoutMs = kAnswerMs);
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  static constexpr std::uint32_t kAnswerMs = 60000;

  Child(const std::vector<std::string>& command, const Environment& environment);
  std::string readLine(std::uint32_t timeoutMs);
  std::string readLineFrom(const std::string& lineStart);
  [[nodiscard]] bool hasEnded(std::uint32_t timeoutMs) const;

  std::string name_;
  bool serves_ = false;
  pid_t pid_ = -1;
  int toChild_ = -1;
  int fromChild_ = -1;
  std::string read_;  // what came behind the last line
};

/// The one command of a role without arguments.
[[nodiscard]] Json::Value command(const char* what);

}  // namespace bench
