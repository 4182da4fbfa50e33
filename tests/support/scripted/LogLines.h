#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "pbase/ILogger.h"

namespace scripted {

/// One log record, taken apart at its "[unit:line]". Lines compare by level and text.
struct LogLine {
  std::uint32_t level;
  std::string text;  ///< what follows the bracket, with its line end
  std::string unit = {};

  friend bool operator==(const LogLine& a, const LogLine& b) {
    return a.level == b.level && a.text == b.text;
  }
  friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level << ' ' << line.unit << ' ' << testing::PrintToString(line.text);
  }
};

/// Collects log records. Any thread may call.
class LogLines {
 public:
  void add(std::uint32_t level, const std::string& record) {
    char unit[64] = "";
    int end = 0;  // stays 0 unless all of it is there, the bracket included
    std::sscanf(record.c_str(), "[%63[A-Za-z]:%*[0-9]]%n", unit, &end);
    const std::lock_guard lock(mutex_);
    lines_.push_back(end > 0 ? LogLine{level, record.substr(static_cast<std::size_t>(end)), unit}
                             : LogLine{level, "?" + record});
  }
  /// What came since the last take.
  std::vector<LogLine> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }
  /// The texts of that level and unit that hold `part`; leaves all where they are.
  std::vector<std::string> texts(std::uint32_t level, const std::string& unit,
                                 const std::string& part = "") {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> found;
    for (const LogLine& line : lines_) {
      const bool fits = line.level == level && line.unit == unit;
      if (fits && line.text.find(part) != std::string::npos) found.push_back(line.text);
    }
    return found;
  }

 private:
  std::mutex mutex_;  // guards lines_
  std::vector<LogLine> lines_;
};

/// All that is logged while it lives.
class CapturedLog : public LogLines {
 public:
  CapturedLog() {
    sink_ = Pexal::ILogger::instance()->addSink(
        [this](std::uint32_t level, const char* text, int) { add(level, text); });
  }
  ~CapturedLog() { Pexal::ILogger::instance()->removeSink(sink_); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

 private:
  Pexal::ILogger::SinkId sink_{};
};

}  // namespace scripted
