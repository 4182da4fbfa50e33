#include "core/Output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "core/Failure.h"
#include "core/Text.h"

namespace robotctl {
namespace {

// A pipe that poll() calls writable takes that much without waiting.
constexpr std::size_t kPieceBytes = 4096;

void complain(const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t size = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return;  // there is nobody left to tell
    done += static_cast<std::size_t>(size);
  }
}

std::string written(const Json::Value& document, const char* indentation) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indentation;
  builder["precision"] = 15;  // 0.1 rather than 0.10000000000000001
  builder["emitUTF8"] = true;
  // A robot's texts may be anything, and the writer lets them through.
  return asUtf8(Json::writeString(builder, document));
}

}  // namespace

void Output::write(std::string_view text) const {
  while (!text.empty()) {
    std::array<pollfd, 2> watched{pollfd{STDOUT_FILENO, POLLOUT, 0},
                                  pollfd{interrupts_.fd(), POLLIN, 0}};
    if (::poll(watched.data(), watched.size(), -1) < 0) continue;  // EINTR
    if (watched[0].revents == 0) {
      interrupts_.check();
      continue;
    }
    const ssize_t size = ::write(STDOUT_FILENO, text.data(), std::min(text.size(), kPieceBytes));
    if (size >= 0) {
      text.remove_prefix(static_cast<std::size_t>(size));
    } else if (errno == EPIPE) {
      throw OutputClosed{};
    } else if (errno != EINTR && errno != EAGAIN) {
      throw Failure(ExitCode::kSetup,
                    std::string("standard output can't be written: ") + std::strerror(errno));
    }
  }
}

void Output::line(std::string_view text) const {
  write(std::string(text) + '\n');
}

void Output::json(const Json::Value& document) const {
  line(written(document, "  "));
}

void Output::jsonLine(const Json::Value& document) const {
  line(written(document, ""));
}

void Output::note(std::string_view text) const {
  if (!options_.quiet) complain(std::string(text) + '\n');
}

void Output::warning(std::string_view text) const {
  complain("robotctl: " + std::string(text) + '\n');
}

void Output::failure(const Failure& failure) const {
  if (!options_.json) {
    std::string text = std::string("robotctl: ") + failure.what() + '\n';
    if (!failure.hint().empty()) text += "robotctl: hint: " + failure.hint() + '\n';
    complain(text);
    return;
  }
  Json::Value error = failure.details().isObject() ? failure.details() : Json::Value();
  error["message"] = failure.what();
  if (!failure.hint().empty()) error["hint"] = failure.hint();
  error["exitCode"] = static_cast<int>(failure.code());
  Json::Value document;
  document["error"] = std::move(error);
  complain(written(document, "") + '\n');
}

void Output::log(std::string_view text) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  complain(std::string(text) + '\n');
}

bool Output::isTerminal() {
  return ::isatty(STDOUT_FILENO) != 0;
}

}  // namespace robotctl
