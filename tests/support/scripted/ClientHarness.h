#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "LogPrefix.h"
#include "ScriptedBus.h"
#include "highlevel/HighLevelFactory.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"
#include "pbase/VirtualClock.h"

namespace Json {

inline void PrintTo(const Value& value, std::ostream* out) {
  *out << value.toStyledString();
}

}  // namespace Json

namespace scripted {

/// {{"a", 1}, {"b", "x"}} as a JSON object.
inline Json::Value object(const std::vector<std::pair<const char*, Json::Value>>& members) {
  Json::Value result(Json::objectValue);
  for (const auto& [name, value] : members) result[name] = value;
  return result;
}

/// The value as text. Numbers that were parsed and numbers that were written compare alike only so.
inline std::string text(const Json::Value& value) {
  return Pexal::Utils::jsonToString(value);
}

/// A robot that grants control ("controller-1", "controller-2", ...) and accepts everything else,
/// until the test says otherwise for a method.
class Robot {
 public:
  explicit Robot(Bus& bus) {
    bus.onRequest([this](const Request& request) { return answer(request); });
  }
  void on(const std::string& method, RpcHandler handler) {
    const std::lock_guard lock(mutex_);
    handlers_[method] = std::move(handler);
  }
  void on(const std::string& method, Reply reply) {
    on(method, [reply](const Request&) { return reply; });
  }
  /// The lease of further grants; null leaves it out.
  void setLease(Json::Value leaseTimeout) {
    const std::lock_guard lock(mutex_);
    lease_ = std::move(leaseTimeout);
  }
  Reply grant() {
    const std::lock_guard lock(mutex_);
    Json::Value params = object({{"controller", "controller-" + std::to_string(++grants_)}});
    if (!lease_.isNull()) params["leaseTimeout"] = lease_;
    return accepted(params);
  }

 private:
  Reply answer(const Request& request) {
    RpcHandler handler;
    {
      const std::lock_guard lock(mutex_);
      if (const auto found = handlers_.find(request.method); found != handlers_.end()) {
        handler = found->second;
      }
    }
    if (handler) return handler(request);
    return request.method == "takeMotionControl" ? grant() : accepted();
  }

  std::mutex mutex_;  // guards all below
  std::map<std::string, RpcHandler> handlers_;
  Json::Value lease_ = 30000;
  int grants_ = 0;
};

/// What the connect callback was told, in order.
class Notifications {
 public:
  using Pair = std::pair<std::uint32_t, std::uint32_t>;

  void add(std::uint32_t state, std::uint32_t code) {
    const std::lock_guard lock(mutex_);
    all_.emplace_back(state, code);
  }
  /// Those since the last take.
  std::vector<Pair> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(all_, {});
  }

 private:
  std::mutex mutex_;  // guards all_
  std::vector<Pair> all_;
};

/// The log lines of the SDK's high-level units.
class LogCapture {
 public:
  struct Line {
    std::uint32_t level;
    std::string unit;
    std::string text;  ///< what follows "[unit:line]", with its line end
  };

  LogCapture() {
    sink_ = Pexal::ILogger::instance()->addSink([this](std::uint32_t level, const char* text, int) {
      const auto record = orvane::test::splitLogRecord(text);
      if (!record) return;
      const std::lock_guard lock(mutex_);
      lines_.push_back({level, record->unit, record->text});
    });
  }
  ~LogCapture() { Pexal::ILogger::instance()->removeSink(sink_); }

  /// The texts of that level and unit that hold `part`.
  std::vector<std::string> texts(std::uint32_t level, const std::string& unit,
                                 const std::string& part = "") {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> found;
    for (const Line& line : lines_) {
      const bool fits = line.level == level && line.unit == unit;
      if (fits && line.text.find(part) != std::string::npos) found.push_back(line.text);
    }
    return found;
  }
  void print() {
    const std::lock_guard lock(mutex_);
    for (const Line& line : lines_) std::cerr << line.level << ' ' << line.unit << line.text;
  }
  std::vector<std::string> client(std::uint32_t level, const std::string& part = "") {
    return texts(level, "MotionHighLevelClientImpl", part);
  }

 private:
  std::mutex mutex_;  // guards lines_
  std::vector<Line> lines_;
  Pexal::ILogger::SinkId sink_{};
};

/// A client of robot "dog-7" on simulated time, with the service initialed as on an external host.
class ClientTest : public testing::Test {
 protected:
  static constexpr const char* kServer = "robotServer";
  static constexpr const char* kStatusTopic = "robotServer.control.status";
  static constexpr const char* kEventTopic = "robotServer.host.event";
  static constexpr const char* kOwnId = "unitTest";

  ClientTest() {
    auto* const service = orvane::RobotSdk::IMotionSdkService::instance();
    service->attachLoggerCallback([](std::uint32_t, const char*, int) {});
    EXPECT_TRUE(service->initial(nullptr, kOwnId, 0));
    client = makeClient();
  }
  ~ClientTest() override {
    if (HasFailure()) log.print();
    client.reset();
    clock.advance(100'000);  // what was left behind in a callback ends by itself
    orvane::RobotSdk::IMotionSdkService::instance()->shutdown();
  }

  std::shared_ptr<orvane::RobotSdk::IMotionHighLevelClient> makeClient() {
    auto made = orvane::RobotSdk::makeRemoteHighLevelClient("dog-7");
    made->setConnectCallback(
        [this](std::uint32_t state, std::uint32_t code) { notifications.add(state, code); });
    return made;
  }
  static std::uint64_t now() { return Pexal::PBase::CTime::getCurrentMilliSecond(); }

  void connect() {
    ASSERT_TRUE(client->connect(60000));
    clock.advance(0);
  }
  /// Connects and takes control, which costs 3 s for the pause before the take.
  void hold() {
    connect();
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(3000);
    ASSERT_EQ(client->getState(), 2U);
    ASSERT_THAT(notifications.take(), testing::ElementsAre(testing::Pair(2, 0)));
  }
  void controlStatus(const Json::Value& controlled, const Json::Value& controller) {
    bus.inject(kServer, kStatusTopic,
               object({{"controlled", controlled}, {"controller", controller}}));
    clock.advance(0);
  }
  /// Lets simulated time pass until that holds; false after 20 s of real time. For what depends on
  /// the end of the observed source's thread: it waits in DDS, by real time, while simulated time
  /// runs on.
  [[nodiscard]] bool until(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      clock.advance(1);
    }
    return true;
  }
  /// Under which identity the requests of a method were made.
  std::vector<std::string> speakers(const std::string& method) {
    std::vector<std::string> ids;
    for (const Request& request : bus.requests(method)) {
      ids.push_back(request.document["call"]["clientId"].asString());
    }
    return ids;
  }
  /// When the requests of a method were made, counted from `since`.
  std::vector<std::uint64_t> times(const std::string& method, std::uint64_t since) {
    std::vector<std::uint64_t> all;
    for (const Request& request : bus.requests(method)) all.push_back(request.atMs - since);
    return all;
  }

  Pexal::PBase::VirtualClock clock;
  Bus bus;
  Robot robot{bus};
  LogCapture log;
  Notifications notifications;
  std::shared_ptr<orvane::RobotSdk::IMotionHighLevelClient> client;
};

}  // namespace scripted
