#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "WaitUntil.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace platform_test {

using orvane_test::waitUntil;

/// For waits that end long before, unless something is broken.
constexpr std::uint32_t kDeadlineMs = 20'000;

inline std::unique_ptr<Pexal::PBase::CThread> startThread(std::function<void()> body,
                                                          const std::string& name = "test") {
  auto thread = std::make_unique<Pexal::PBase::CThreadLite>(name, 0, 0, 0, std::move(body));
  EXPECT_TRUE(thread->createThread());
  return thread;
}

inline Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Pexal::Utils::stringToJson(text, value)) << text;
  return value;
}

/// `depth` times "open", something inside, and as many times "close".
inline std::string nested(int depth, const std::string& open = "[",
                          const std::string& close = "]") {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  text += "1";
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

/// Collects the log while it lives.
class LogWatch {
 public:
  LogWatch()
      : sink_(
            Pexal::ILogger::instance()->addSink([this](std::uint32_t level, const char* text, int) {
              const std::lock_guard lock(mutex_);
              lines_.push_back(std::to_string(level) + " " + text);
            })) {}
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;
  ~LogWatch() { Pexal::ILogger::instance()->removeSink(sink_); }

  /// Lines that contain the text; each begins with its level.
  [[nodiscard]] std::vector<std::string> with(const std::string& text) const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> found;
    for (const std::string& line : lines_) {
      if (line.find(text) != std::string::npos) found.push_back(line);
    }
    return found;
  }
  [[nodiscard]] std::string all() const { return testing::PrintToString(with("")); }

 private:
  mutable Pexal::PBase::CMutex mutex_;  // guards lines_
  std::vector<std::string> lines_;
  Pexal::ILogger::SinkId sink_;
};

}  // namespace platform_test
