#include "harness/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "harness/Clock.h"
#include "pbase/CThread.h"
#include "pbase/Utils.h"

namespace bench {
namespace {

constexpr std::int64_t kNsPerMs = 1'000'000;
constexpr std::uint32_t kStartMs = 30000;
constexpr std::uint32_t kEndMs = 5000;

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe for a child");
  return ends;
}

[[noreturn]] void become(const std::vector<std::string>& command,
                         const Child::Environment& environment, int input, int output) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  ::execv(arguments.front(), arguments.data());
  ::_exit(127);
}

}  // namespace

Child::Child(const std::vector<std::string>& command, const Environment& environment)
    : name_(command.front()) {
  const auto input = makePipe();
  const auto output = makePipe();
  pid_ = ::fork();
  if (pid_ == 0) become(command, environment, input[0], output[1]);
  ::close(input[0]);
  ::close(output[1]);
  toChild_ = input[1];
  fromChild_ = output[0];
  if (pid_ < 0) throw std::runtime_error("cannot start " + name_);
}

Child::Child(Child&& other) noexcept
    : name_(std::move(other.name_)),
      serves_(other.serves_),
      pid_(std::exchange(other.pid_, -1)),
      toChild_(std::exchange(other.toChild_, -1)),
      fromChild_(std::exchange(other.fromChild_, -1)),
      read_(std::move(other.read_)) {}

Child::~Child() {
  beginEnd();
  if (pid_ > 0 && !hasEnded(kEndMs)) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  if (fromChild_ >= 0) ::close(fromChild_);
}

void Child::beginEnd() {
  if (pid_ > 0 && serves_) ::kill(pid_, SIGTERM);
  if (toChild_ >= 0) ::close(std::exchange(toChild_, -1));  // a role ends with its input
}

bool Child::hasEnded(std::uint32_t timeoutMs) const {
  const std::int64_t deadline = nowNs() + timeoutMs * kNsPerMs;
  while (::waitpid(pid_, nullptr, WNOHANG) == 0) {
    if (nowNs() > deadline) return false;
    Pexal::PBase::CThread::sleep(2);
  }
  return true;
}

Child Child::server(std::vector<std::string> command, const std::string& readyLine) {
  Child child(command, {});
  child.serves_ = true;
  static_cast<void>(child.readLineFrom(readyLine));
  return child;
}

Child Child::role(const std::string& program, const std::string& name, const Json::Value& arguments,
                  const Environment& environment) {
  Child child({program, "--role", name, Pexal::Utils::jsonToString(arguments)}, environment);
  child.name_ = name;
  static_cast<void>(child.receive(kStartMs));
  return child;
}

std::string Child::lastWords(const std::string& lineStart) {
  beginEnd();
  return readLineFrom(lineStart);
}

void Child::send(const Json::Value& command) {
  const std::string line = Pexal::Utils::jsonToString(command) + '\n';
  std::size_t written = 0;
  while (written < line.size()) {
    const ssize_t count = ::write(toChild_, line.data() + written, line.size() - written);
    if (count < 0 && errno != EINTR) throw std::runtime_error(name_ + " takes no commands");
    if (count > 0) written += static_cast<std::size_t>(count);
  }
}

Json::Value Child::receive(std::uint32_t timeoutMs) {
  const std::string line = readLine(timeoutMs);
  Json::Value answer;
  if (!Pexal::Utils::stringToJson(line, answer) || !answer.isObject()) {
    throw std::runtime_error(name_ + " answered nonsense: " + line.substr(0, 100));
  }
  if (answer["error"].isString()) {
    throw std::runtime_error(name_ + ": " + answer["error"].asString());
  }
  return answer;
}

Json::Value Child::ask(const Json::Value& command, std::uint32_t timeoutMs) {
  send(command);
  return receive(timeoutMs);
}

std::string Child::readLineFrom(const std::string& lineStart) {
  for (;;) {
    std::string line = readLine(kStartMs);
    if (line.starts_with(lineStart)) return line;
  }
}

std::string Child::readLine(std::uint32_t timeoutMs) {
  const std::int64_t deadline = nowNs() + timeoutMs * kNsPerMs;
  for (;;) {
    if (const std::size_t end = read_.find('\n'); end != std::string::npos) {
      std::string line = read_.substr(0, end);
      read_.erase(0, end + 1);
      return line;
    }
    pollfd ready{fromChild_, POLLIN, 0};
    const std::int64_t leftMs = (deadline - nowNs()) / kNsPerMs;
    if (leftMs <= 0) throw std::runtime_error(name_ + " doesn't answer");
    if (::poll(&ready, 1, static_cast<int>(leftMs)) <= 0) continue;
    std::array<char, 65536> buffer{};
    const ssize_t count = ::read(fromChild_, buffer.data(), buffer.size());
    if (count == 0) throw std::runtime_error(name_ + " has ended");
    if (count > 0) read_.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

Json::Value command(const char* what) {
  Json::Value document(Json::objectValue);
  document["do"] = what;
  return document;
}

}  // namespace bench
