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

#include "LogLines.h"
#include "ScriptedBus.h"
#include "highlevel/HighLevelFactory.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "pbase/CTime.h"
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
  void on(const std::string& method, const Reply& reply) {
    on(method, [reply](const Request&) { return reply; });
  }
  /// Does what it would, `ms` later.
  void slow(const std::string& method, std::uint32_t ms) {
    on(method, [this, ms](const Request& request) {
      Reply reply = usual(request);
      reply.takesMs = ms;
      return reply;
    });
  }
  /// Does what it would, after `action`.
  void during(const std::string& method, const std::function<void()>& action) {
    on(method, [this, action](const Request& request) {
      action();
      return usual(request);
    });
  }
  /// The lease of further grants; null leaves it out.
  void setLease(const Json::Value& leaseTimeout) {
    const std::lock_guard lock(mutex_);
    lease_ = leaseTimeout;
  }

 private:
  Reply answer(const Request& request) {
    RpcHandler handler;
    {
      const std::lock_guard lock(mutex_);
      if (const auto known = handlers_.find(request.method); known != handlers_.end()) {
        handler = known->second;
      }
    }
    return handler ? handler(request) : usual(request);
  }
  Reply usual(const Request& request) {
    if (request.method != "takeMotionControl") return accepted();
    const std::lock_guard lock(mutex_);
    Json::Value grant = object({{"controller", "controller-" + std::to_string(++grants_)}});
    if (!lease_.isNull()) grant["leaseTimeout"] = lease_;
    return accepted(grant);
  }

  std::mutex mutex_;  // guards all below
  std::map<std::string, RpcHandler> handlers_;
  Json::Value lease_ = 30000;
  int grants_ = 0;
};

/// A client of robot "dog-7" on simulated time, with the service initialed as on an external host.
class ClientTest : public testing::Test {
 protected:
  using Client = orvane::RobotSdk::IMotionHighLevelClient;
  using Texts = std::vector<std::string>;

  static constexpr const char* kServer = "robotServer";
  static constexpr const char* kStatusTopic = "robotServer.control.status";
  static constexpr const char* kEventTopic = "robotServer.host.event";
  static constexpr const char* kOwnId = "unitTest";

  ClientTest() {
    auto* const service = orvane::RobotSdk::IMotionSdkService::instance();
    service->attachLoggerCallback([](std::uint32_t, const char*, int) {});
    EXPECT_TRUE(service->initial(nullptr, kOwnId, 0));
    client = listened(orvane::RobotSdk::makeRemoteHighLevelClient("dog-7"));
  }
  ~ClientTest() override {
    if (HasFailure()) {
      for (const LogLine& line : log.take()) std::cerr << line << '\n';
    }
    client.reset();
    clock.advance(100'000);  // what was left behind in a callback ends by itself
    orvane::RobotSdk::IMotionSdkService::instance()->shutdown();
  }

  /// A client whose connect callback is told().
  std::shared_ptr<Client> listened(std::shared_ptr<Client> made) {
    made->setConnectCallback(
        [this](std::uint32_t state, std::uint32_t code) { note(state, code); });
    return made;
  }
  void note(std::uint32_t state, std::uint32_t code) {
    const std::lock_guard lock(toldMutex_);
    if (!told_.empty()) told_ += ' ';
    told_ += std::to_string(state) + ':' + std::to_string(code);
  }

  // --- what the application does and sees ---

  void connect() {
    ASSERT_TRUE(client->connect(60000));
    clock.advance(0);
  }
  /// Takes control, which costs 3 s for the pause before the take.
  void take() {
    ASSERT_TRUE(client->takeMotionControl(0));
    clock.advance(3000);
    ASSERT_EQ(client->getState(), 2U);
    ASSERT_EQ(told(), "2:0");
  }
  void hold() {
    connect();
    take();
  }
  /// What the connect callback was told since the last look, as "state:code state:code".
  std::string told() {
    clock.advance(0);
    const std::lock_guard lock(toldMutex_);
    return std::exchange(told_, {});
  }
  std::uint32_t error() { return client->getLastError(); }
  Texts logged(std::uint32_t level, const std::string& part = "") {
    return log.texts(level, "MotionHighLevelClientImpl", part);
  }
  static std::uint64_t now() { return Pexal::PBase::CTime::getCurrentMilliSecond(); }
  /// Lets simulated time pass until that holds; false after 20 s of real time. For what depends on
  /// the end of the observed source's thread, which waits in DDS by real time.
  [[nodiscard]] bool until(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      clock.advance(1);
    }
    return true;
  }

  // --- what the robot does and sees ---

  void hostEvent(const Json::Value& payload) { bus.inject(kServer, kEventTopic, payload); }
  void controlStatus(const Json::Value& payload) { bus.inject(kServer, kStatusTopic, payload); }
  void controlStatus(bool controlled, const char* controller) {
    controlStatus(object({{"controlled", controlled}, {"controller", controller}}));
  }
  /// Under which identity the requests of a method were made.
  Texts speakers(const std::string& method) {
    Texts ids;
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
  CapturedLog log;
  std::shared_ptr<Client> client;

 private:
  std::mutex toldMutex_;  // guards told_
  std::string told_;
};

}  // namespace scripted
