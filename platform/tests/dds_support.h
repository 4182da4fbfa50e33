#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <dds/dds.hpp>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "DdsTest.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"

DDS_REGISTER_TYPE(dds_test_Numbered, dds_test_Numbered_desc);
DDS_REGISTER_TYPE(dds_test_Stranger, dds_test_Stranger_desc);

namespace dds_test {

using Numbered = dds_test_Numbered;
using Stranger = dds_test_Stranger;

constexpr std::uint32_t kDomain = 42;
constexpr std::uint32_t kDeadlineMs = 10'000;

/// Whether `ready` comes true before the deadline.
inline bool eventually(const std::function<bool()>& ready, std::uint32_t deadlineMs = kDeadlineMs) {
  const auto end = Pexal::PBase::CTime::getCurrentMilliSecond() + deadlineMs;
  while (!ready()) {
    if (Pexal::PBase::CTime::getCurrentMilliSecond() > end) return false;
    Pexal::PBase::CThread::sleep(2);
  }
  return true;
}

inline Numbered numbered(std::uint64_t number) {
  Numbered sample{};
  sample.number = number;
  return sample;
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
  [[nodiscard]] std::string all() const {
    const std::lock_guard lock(mutex_);
    std::string text;
    for (const std::string& line : lines_) text += line;
    return text;
  }

 private:
  mutable Pexal::PBase::CMutex mutex_;  // guards lines_
  std::vector<std::string> lines_;
  Pexal::ILogger::SinkId sink_;
};

}  // namespace dds_test
