#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "orvane/RobotSdk/RobotSdk.h"
#include "pbase/Utils.h"
#include "scripted/LogLines.h"

namespace service_test {

using scripted::LogLine;
using scripted::LogLines;
using Lines = std::vector<LogLine>;

/// What is written to standard output until the function that it gives is called.
inline std::string (*captureOutput())() {
  testing::internal::CaptureStdout();
  return testing::internal::GetCapturedStdout;
}

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
  ServiceTest() { stop(); }
  ~ServiceTest() override { stop(); }

  void attachLog() {  // shared with the callback, which may outlive a test
    service->attachLoggerCallback([log = log](std::uint32_t level, const char* text, int length) {
      log->add(level, std::string(text, static_cast<std::size_t>(length)));
    });
  }
  void stop() {
    service->shutdown();
    attachLog();
    service->attachRobotDiscoverCallback({});
    service->setNetworkInterface(nullptr);
  }
  [[nodiscard]] bool start(const char* config = nullptr, std::uint32_t roudiWaitSeconds = 1) {
    return service->initial(config, "probe", roudiWaitSeconds);
  }

  orvane::RobotSdk::IMotionSdkService* const service =
      orvane::RobotSdk::IMotionSdkService::instance();
  const std::shared_ptr<LogLines> log = std::make_shared<LogLines>();
};

}  // namespace service_test
