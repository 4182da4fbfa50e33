#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "pbase/ILogger.h"
#include "pbase/Utils.h"
#include "pbase/VirtualClock.h"

namespace fuzz {

/// Ends the process when `holds` is false: the fuzzer then keeps the input.
inline void require(bool holds, const char* what, const std::string& detail = {}) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: doesn't hold: %s %s\n", what, detail.c_str());
  std::abort();
}

/// Log records are formatted as ever, but not printed. Call once.
inline void silenceLog() {
  Pexal::ILogger::instance()->enableConsole(false);
  static_cast<void>(
      Pexal::ILogger::instance()->addSink([](std::uint32_t, const char* text, int length) {
        require(text[length] == '\0', "a log record is terminated at its length");
      }));
}

/// One for all inputs; its maker is the thread that asks first.
inline Pexal::PBase::VirtualClock& virtualClock() {
  static auto& clock = *new Pexal::PBase::VirtualClock;
  return clock;
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Takes the text up to `separator` (or all) off the front.
inline std::string_view takeUntil(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view head = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return head;
}

/// An input of the scripted targets: one step per line.
inline std::vector<std::string_view> linesOf(std::string_view text, std::size_t most) {
  std::vector<std::string_view> lines;
  while (!text.empty() && lines.size() < most) lines.push_back(takeUntil(text, '\n'));
  return lines;
}

/// What LLVMFuzzerInitialize of a target on the virtual clock does.
inline int startOnVirtualClock() {
  silenceLog();
  virtualClock();
  return 0;
}

/// A target's run: a fresh Subject plays the input's steps, and must be alive at the end.
template <class Subject>
int playSteps(std::string_view text, std::size_t most) {
  Subject subject;
  for (const std::string_view line : linesOf(text, most)) subject.play(line);
  subject.checkAlive();
  return 0;
}

/// The number that a text begins with; 0 when it begins with none, the largest when it is too
/// large.
inline std::uint64_t numberOf(std::string_view text) {
  return std::strtoull(std::string(text).c_str(), nullptr, 10);
}

inline bool isJson(std::string_view text) {
  Json::Value value;
  return Pexal::Utils::stringToJson(text, value);
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
