#include "Logger.h"

#include <spdlog/logger.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <mutex>
#include <utility>

#include "ConsoleSink.h"

namespace Pexal {

namespace {

constexpr std::uint32_t kDefaultMaxLength = 4096;
constexpr std::uint32_t kMinMaxLength = 64;
constexpr std::uint32_t kMaxMaxLength = 1U << 20;

struct Level {
  const char* name;
  spdlog::level::level_enum console;
};

constexpr std::array<Level, 6> kLevels{{{"trace", spdlog::level::trace},
                                        {"info", spdlog::level::info},
                                        {"notice", spdlog::level::info},
                                        {"warning", spdlog::level::warn},
                                        {"error", spdlog::level::err},
                                        {"config", spdlog::level::warn}}};

const Level& levelOf(std::uint32_t level) {
  return kLevels[std::min<std::size_t>(level, kLevels.size() - 1)];
}

/// Cuts `text` to `length` bytes, not inside a UTF-8 character; a line keeps its end.
void cut(std::string& text, std::size_t length, bool isLine) {
  std::size_t end = length - (isLine ? 1 : 0);
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  text.resize(end);
  if (isLine) text += '\n';
}

std::string formatRecord(const char* format, std::va_list arguments, std::size_t maxLength) {
  std::va_list again;
  va_copy(again, arguments);
  std::string text(256, '\0');
  const int needed = std::vsnprintf(text.data(), text.size(), format, arguments);
  if (needed < 0) {
    text = format;  // an argument that can't be printed: better than nothing
  } else if (static_cast<std::size_t>(needed) < text.size()) {
    text.resize(static_cast<std::size_t>(needed));
  } else {
    // One byte more than is kept shows whether the cut falls inside a character.
    text.resize(std::min<std::size_t>(static_cast<std::size_t>(needed), maxLength + 1));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  if (text.size() > maxLength) {
    const std::string_view form(format);
    cut(text, maxLength, !form.empty() && form.back() == '\n');
  }
  return text;
}

}  // namespace

struct Logger::SinkEntry {
  SinkId id = 0;
  Sink sink;

  PBase::CMutex mutex;     // guards what follows
  PBase::CCondition idle;  // no call runs
  bool removed = false;
  bool awaited = false;  // who removes it waits, and destroys the sink
  int calls = 0;
};

/// A sink's call that runs on this thread; the calls of a thread form a chain through its stack.
struct Logger::Call {
  explicit Call(SinkEntry& called) : entry(called), outer(innermost) { innermost = this; }
  ~Call() { innermost = outer; }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  static bool isInside(const SinkEntry& entry) {
    for (const Call* call = innermost; call != nullptr; call = call->outer) {
      if (&call->entry == &entry) return true;
    }
    return false;
  }

  const SinkEntry& entry;
  const Call* const outer;
  static constinit thread_local const Call* innermost;
};

constinit thread_local const Logger::Call* Logger::Call::innermost = nullptr;

ILogger* ILogger::instance() {
  static auto* const theOne = new Logger;  // never destroyed: static destructors log too
  return theOne;
}

Logger::Logger() : maxLength_(kDefaultMaxLength), sinks_(std::make_shared<SinkList>()) {
  makeConsole("pexal");
}

void Logger::makeConsole(const std::string& name) {
  console_ = std::make_shared<spdlog::logger>(name, std::make_shared<ConsoleSink>());
  console_->set_pattern("[%Y-%m-%d %H:%M:%S.%e] [%n] %v");
  console_->set_level(spdlog::level::trace);
  console_->flush_on(immediateFlush_ ? spdlog::level::trace : spdlog::level::warn);
}

void Logger::configure(const char* name, std::uint32_t maxLength) {
  maxLength_ = std::clamp(maxLength, kMinMaxLength, kMaxMaxLength);
  const std::lock_guard guard(mutex_);
  if (name != nullptr) makeConsole(name);
}

void Logger::setImmediateFlush(int value) {
  const std::lock_guard guard(mutex_);
  immediateFlush_ = value != 0;
  console_->flush_on(immediateFlush_ ? spdlog::level::trace : spdlog::level::warn);
}

void Logger::enableConsole(bool enabled) {
  consoleEnabled_ = enabled;
}

ILogger::SinkId Logger::addSink(Sink sink) {
  auto entry = std::make_shared<SinkEntry>();
  entry->sink = std::move(sink);
  const std::lock_guard guard(mutex_);
  entry->id = ++lastSinkId_;
  auto changed = std::make_shared<SinkList>(*sinks_);
  changed->push_back(entry);
  sinks_ = std::move(changed);
  return entry->id;
}

void Logger::removeSink(SinkId id) {
  std::shared_ptr<SinkEntry> entry;
  {
    const std::lock_guard guard(mutex_);
    auto changed = std::make_shared<SinkList>(*sinks_);
    const auto found = std::find_if(changed->begin(), changed->end(),
                                    [id](const auto& candidate) { return candidate->id == id; });
    if (found == changed->end()) return;
    entry = *found;
    changed->erase(found);
    sinks_ = std::move(changed);
  }
  Sink finished;  // destroyed when no lock is held any more
  std::unique_lock lock(entry->mutex);
  entry->removed = true;
  if (Call::isInside(*entry)) return;
  // Without a deadline: the caller frees what the sink uses as soon as this returns.
  entry->awaited = true;
  entry->idle.waitUntil(lock, std::numeric_limits<std::uint64_t>::max(),
                        [&entry] { return entry->calls == 0; });
  finished.swap(entry->sink);
}

void Logger::deliver(SinkEntry& entry, std::uint32_t level, const std::string& text) {
  if (Call::isInside(entry)) return;  // what a sink logs doesn't come back to it
  {
    const std::lock_guard guard(entry.mutex);
    if (entry.removed) return;
    ++entry.calls;
  }
  try {
    const Call call(entry);
    if (entry.sink) entry.sink(level, text.c_str(), static_cast<int>(text.size()));
  } catch (...) {  // the contract: nothing comes out of log()
  }
  Sink finished;
  const std::lock_guard guard(entry.mutex);
  if (--entry.calls > 0 || !entry.removed) return;
  if (!entry.awaited) finished.swap(entry.sink);
  entry.idle.notifyAll();
}

void Logger::writeConsole(std::uint32_t level, const char* tag, std::string_view text) {
  std::shared_ptr<spdlog::logger> console;
  {
    const std::lock_guard guard(mutex_);
    console = console_;
  }
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  const Level& known = levelOf(level);
  console->log(known.console, "[{}] [{}] {}", known.name, tag, text);
}

void Logger::write(std::uint32_t level, const char* tag, const char* format,
                   std::va_list arguments) {
  const std::string text = formatRecord(format, arguments, maxLength_);
  if (consoleEnabled_) writeConsole(level, tag != nullptr ? tag : "", text);
  std::shared_ptr<const SinkList> sinks;
  {
    const std::lock_guard guard(mutex_);
    sinks = sinks_;
  }
  for (const auto& entry : *sinks) deliver(*entry, level, text);
}

void Logger::log(std::uint32_t level, const char* tag, const char* format, ...) {
  if (format == nullptr) return;
  const int savedErrno = errno;
  std::va_list arguments;
  va_start(arguments, format);
  try {
    write(level, tag, format, arguments);
  } catch (...) {  // no memory for the record
  }
  va_end(arguments);
  errno = savedErrno;
}

}  // namespace Pexal
