#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lowlevel/LowLevelFactory.h"
#include "lowlevel/LowLevelStatus.h"
#include "pbase/CShmTripleBuffer.h"
#include "pbase/CThread.h"
#include "scripted/ClientHarness.h"
#include "shm/ShareMotionReader.h"

namespace lowlevel_test {

using namespace scripted;
using namespace orvane::RobotSdk;
using namespace orvane::RobotSdk::lowlevel;
using Record = Robot::Motion::ShareLowLevelMotionCtrlData;
using Texts = std::vector<std::string>;

/// A low-level client on simulated time, with real shared memory, and a robot that grants sessions
/// 1001, 1002, ... with a lease of a minute and whose drive is ready at once, until the test says
/// otherwise.
class LowLevelTest : public ClientTest {
 protected:
  static constexpr std::uint32_t kLeaseMs = 60000;
  static constexpr std::uint32_t kRenewMs = kLeaseMs / 3;

  LowLevelTest() {
    EXPECT_TRUE(motion.create("motion_observed", sizeof(ObservedMotionRecord)));
    EXPECT_TRUE(sensor.create("motion_sensor_observed", sizeof(ObservedSensorRecord)));
    serve();
    low = listenedLow(makeLocalLowLevelClient());
  }
  ~LowLevelTest() override { low.reset(); }

  /// Answers all methods as a robot that is well.
  void serve() {
    for (const char* method : {"setMotionMasterRole", "renewWorkModeSession"}) {
      robot.on(method, accepted());
    }
    robot.on("takeWorkModeSession", [this](const Request&) { return accepted(grant()); });
    robot.on("setMotionPrepare", ready(true));
  }
  Json::Value grant() { return object({{"sessionId", ++sessions_}, {"leaseTimeout", kLeaseMs}}); }
  static Reply ready(bool isReady) { return accepted(object({{"ready", isReady}})); }
  static Reply sessionInvalid() { return refused(5, object({{"sessionInvalid", true}})); }

  std::shared_ptr<IMotionLowLevelClient> listenedLow(std::shared_ptr<IMotionLowLevelClient> made) {
    made->setStateCallback([this](std::uint32_t state, std::uint32_t code) { note(state, code); });
    return made;
  }
  /// The service again, with that configuration.
  void configure(const std::string& text) {
    const char* const path = "/tmp/lowlevel_test.json";
    std::ofstream(path) << text;
    auto* const service = IMotionSdkService::instance();
    service->shutdown();
    service->attachLoggerCallback([](std::uint32_t, const char*, int) {});
    ASSERT_TRUE(service->initial(path, kOwnId, 0));
  }

  void connectLow() {
    ASSERT_TRUE(low->connect(500, kLeaseMs));
    clock.advance(0);
    ASSERT_EQ(low->getState(), kConnected);
    ASSERT_EQ(told(), "2:0");
  }
  void prepare() {
    connectLow();
    ASSERT_TRUE(low->setSessionFlag(true));
    clock.advance(0);
    ASSERT_EQ(low->getState(), kPrepared);
    ASSERT_EQ(told(), "3:0");
  }
  /// The methods that were requested since the last look.
  std::string sent() {
    std::string all;
    for (const Request& request : bus.requests()) all += (all.empty() ? "" : " ") + request.method;
    bus.forgetRequests();
    return all;
  }
  std::uint32_t lowError() { return low->getLastError(); }
  Texts lines(std::uint32_t level, const std::string& part = "") {
    return log.texts(level, kUnit, part);
  }
  /// Real time, for what a reader's thread does.
  [[nodiscard]] static bool soon(const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!holds()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::yield();
    }
    return true;
  }
  /// Runs beside the test, in simulated time.
  void beside(std::function<void()> body) {
    threads_.push_back(
        std::make_unique<Pexal::PBase::CThreadLite>("beside", 0, 0, 0, std::move(body)));
    ASSERT_TRUE(threads_.back()->createThread());
  }

  Pexal::Memory::CShmTripleBuffer motion;
  Pexal::Memory::CShmTripleBuffer sensor;
  std::shared_ptr<IMotionLowLevelClient> low;

 private:
  unsigned sessions_ = 1000;
  std::vector<std::unique_ptr<Pexal::PBase::CThread>> threads_;
};

/// The motion process's end of the control channel. Made while a client is connected.
class ControlTap {
 public:
  ControlTap() : reader_(std::make_shared<Robot::Motion::ShareMotionCtrlReader>()) {
    EXPECT_TRUE(reader_->init(object({{"name", "motionCtrlShared"}})));
    EXPECT_TRUE(reader_->initial([this](const Record* record) {
      const std::lock_guard lock(mutex_);
      records_.push_back(*record);
    }));
  }
  ~ControlTap() { reader_->close(); }
  std::vector<Record> records() const {
    const std::lock_guard lock(mutex_);
    return records_;
  }

 private:
  mutable std::mutex mutex_;  // guards records_
  std::vector<Record> records_;
  std::shared_ptr<Robot::Motion::ShareMotionCtrlReader> reader_;
};

inline LowLevelMotorRecord motors(std::uint32_t count) {
  LowLevelMotorRecord record;
  std::memset(&record, 0x3C, sizeof record);
  record.motorNum = count;
  return record;
}

}  // namespace lowlevel_test
