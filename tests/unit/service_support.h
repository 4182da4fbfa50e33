#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "orvane/RobotSdk/RobotSdk.h"
#include "pbase/Utils.h"
#include "scripted/LogPrefix.h"

namespace service_test {

/// One log record without its "[unit:line]".
struct LogLine {
  std::uint32_t level;
  std::string text;
  friend bool operator==(const LogLine&, const LogLine&) = default;
  friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level << ' ' << testing::PrintToString(line.text);
  }
};

/// Collects what the logger callback gets. Shared with the callback, which may outlive a test.
class LogLines {
 public:
  orvane::RobotSdk::LoggerCallback callback(const std::shared_ptr<LogLines>& self) {
    return [self](std::uint32_t level, const char* text, int length) {
      const std::string record(text, static_cast<std::size_t>(length));
      const auto parts = orvane::test::splitLogRecord(record);
      const std::lock_guard lock(self->mutex_);
      self->lines_.push_back({level, parts ? parts->text : "no prefix: " + record});
    };
  }
  /// What came since the last look.
  std::vector<LogLine> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;  // guards lines_
  std::vector<LogLine> lines_;
};

/// Catches what is written to standard output while it lives.
class StandardOutput {
 public:
  StandardOutput() : file_(std::tmpfile()), saved_(::dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    ::dup2(::fileno(file_), STDOUT_FILENO);
  }
  ~StandardOutput() { restore(); }
  StandardOutput(const StandardOutput&) = delete;
  StandardOutput& operator=(const StandardOutput&) = delete;

  /// Ends the catching; gives the text.
  std::string text() {
    restore();
    std::string all;
    std::rewind(file_);
    for (int c = std::fgetc(file_); c != EOF; c = std::fgetc(file_))
      all.push_back(static_cast<char>(c));
    return all;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stdout);
    ::dup2(saved_, STDOUT_FILENO);
    ::close(std::exchange(saved_, -1));
  }
  std::FILE* file_;
  int saved_;
};

inline std::string hostProfilePath() {
  return "/tmp/motion_sdk_host_" + std::to_string(::getpid()) + ".xml";
}

inline bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

inline std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

inline std::string writeFile(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
  return path;
}

inline Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Pexal::Utils::stringToJson(text, value)) << text;
  return value;
}

/// The service with nothing attached, and a log to look at. Every test leaves it shut down.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() { reset(); }
  ~ServiceTest() override { reset(); }

  void reset() {
    service->shutdown();
    service->attachLoggerCallback(log->callback(log));
    service->attachRobotDiscoverCallback({});
    service->setNetworkInterface(nullptr);
  }
  [[nodiscard]] bool start() { return service->initial(nullptr, "probe", 0); }

  orvane::RobotSdk::IMotionSdkService* const service =
      orvane::RobotSdk::IMotionSdkService::instance();
  const std::shared_ptr<LogLines> log = std::make_shared<LogLines>();
};

}  // namespace service_test
