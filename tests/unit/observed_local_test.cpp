// The robot board's source of observed state, on simulated time, against real buffers that the test
// writes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <pthread.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "observed/IHighLevelObserved.h"
#include "pbase/CSemaphore.h"
#include "pbase/CShmTripleBuffer.h"
#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"
#include "scripted/LogLines.h"

namespace {

using namespace orvane::RobotSdk;
using Pexal::Memory::CShmTripleBuffer;
using Pexal::PBase::CTime;
using scripted::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kMotion = "motion_observed";
constexpr const char* kSensor = "motion_sensor_observed";
constexpr std::uint64_t kAnyAge = 0xFFFFFFFF;
constexpr std::uint32_t kPassMs = 20;

void removeBuffer(const std::string& name) {
  std::remove(("/dev/shm/orvane." + name).c_str());
  std::remove(("/dev/shm/orvane." + name + "+lock").c_str());
}

/// Takes deliveries, as the client does, and owns its source, as the client does.
class Sink final : public IObservedSink {
 public:
  explicit Sink(std::function<void()> onEnd = {}) : onEnd_(std::move(onEnd)) {}
  ~Sink() {
    if (onEnd_) onEnd_();
  }
  void deliverMotionObserved(const ObservedMotionRecord& record) override {
    note("motion " + std::to_string(std::int32_t{record.motorNum}), onMotion);
  }
  void deliverSensorObserved(const ObservedSensorRecord& record) override {
    note("sensor " + std::to_string(record.odom.epoch), onSensor);
  }
  /// What was delivered since the last call.
  std::string told() { return std::exchange(told_, {}); }

  std::shared_ptr<IHighLevelObserved> source;
  std::function<void()> onMotion;
  std::function<void()> onSensor;

 private:
  void note(const std::string& what, const std::function<void()>& action) {
    told_ += (told_.empty() ? "" : " ") + what;
    if (action) action();
  }
  std::string told_;  // time stands still while the thread under test writes it
  const std::function<void()> onEnd_;
};

class LocalObserved : public testing::Test {
 protected:
  LocalObserved() {
    removeBuffer(kMotion);
    removeBuffer(kSensor);
    EXPECT_TRUE(motion_.create(kMotion, sizeof(ObservedMotionRecord)));
    EXPECT_TRUE(sensor_.create(kSensor, sizeof(ObservedSensorRecord)));
    sink_->source = makeLocalObserved(sink_);
  }
  ~LocalObserved() override {
    if (sink_ != nullptr) sink_->source->stop();
  }

  void putMotion(int motorNum) {
    ObservedMotionRecord record{};
    record.motorNum = motorNum;
    record.power.temper = static_cast<float>(motorNum);
    EXPECT_GT(motion_.put(&record, sizeof record), 0U);
  }
  void putSensor(std::uint32_t epoch) {
    ObservedSensorRecord record{};
    record.odom.epoch = epoch;
    EXPECT_GT(sensor_.put(&record, sizeof record), 0U);
  }
  void putBoth(int value) {
    putSensor(static_cast<std::uint32_t>(value));
    putMotion(value);
  }
  void enable(bool motion, bool sensor) {
    Json::Value params;
    params["motionEnable"] = motion;
    params["sensorEnable"] = sensor;
    sink_->source->setObservedEnable(params);
  }
  /// What is delivered in the next pass.
  std::string pass() {
    clock_.advance(kPassMs);
    return sink_->told();
  }
  /// The records that are stored and not forgotten.
  std::string stored() {
    ObservedPower power{};
    ObservedSensorRecord sensor{};
    std::string all;
    if (sink_->source->copySensor(sensor, kAnyAge)) all += std::to_string(sensor.odom.epoch);
    if (sink_->source->copyPower(power, kAnyAge)) {
      all += '/' + std::to_string(static_cast<int>(float{power.temper}));
    }
    return all;
  }

  std::string passed() {
    const std::string told = pass();
    return told + ' ' + stored();
  }

  Pexal::PBase::VirtualClock clock_;
  scripted::CapturedLog log_;
  CShmTripleBuffer motion_;
  CShmTripleBuffer sensor_;
  std::shared_ptr<Sink> sink_ = std::make_shared<Sink>();
};

TEST_F(LocalObserved, DeliversWhatComesAfterTheStartTheSensorFirstAndOnlyTheNewest) {
  enable(true, true);
  putBoth(1);
  for (int run = 10; run < 30; run += 10) {
    ASSERT_TRUE(sink_->source->start());
    EXPECT_TRUE(sink_->source->start());
    EXPECT_EQ(pass() + pass(), "") << "it was there before the start";
    putMotion(run + 1);
    putSensor(static_cast<std::uint32_t>(run + 2));
    putMotion(run + 3);
    clock_.advance(kPassMs - 1);
    EXPECT_EQ(sink_->told(), "");
    clock_.advance(1);
    EXPECT_EQ(sink_->told(),
              "sensor " + std::to_string(run + 2) + " motion " + std::to_string(run + 3));
    EXPECT_EQ(pass() + pass(), "") << "each only once";
    putSensor(static_cast<std::uint32_t>(run + 4));
    EXPECT_EQ(pass(), "sensor " + std::to_string(run + 4));

    const auto before = CTime::getCurrentMilliSecond();
    sink_->source->stop();
    sink_->source->stop();
    EXPECT_LE(CTime::getCurrentMilliSecond() - before, 5U) << "in the middle of the pause";
    putBoth(run + 5);
    EXPECT_EQ(pass() + pass(), "");
  }
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(LocalObserved, SwitchesTurnStreamsOffAlsoInTheMiddleOfAPass) {
  ASSERT_TRUE(sink_->source->start());
  putBoth(1);
  EXPECT_EQ(passed(), " ") << "off at first";
  enable(false, true);
  EXPECT_EQ(passed(), "sensor 1 1");
  enable(true, true);
  EXPECT_EQ(passed(), "motion 1 1/1") << "came after the start, too";

  putBoth(2);
  sink_->onSensor = [this] { enable(false, true); };
  EXPECT_EQ(pass(), "sensor 2 motion 2") << "stored before the switch turned";
  EXPECT_EQ(stored(), "2");
  putBoth(3);
  EXPECT_EQ(passed(), "sensor 3 3");

  sink_->onSensor = {};
  enable(true, true);
  EXPECT_EQ(passed(), "motion 3 3/3");
  for (int i = 0; i < 2; ++i) {
    sink_->source->setObservedEnable(Json::Value(Json::objectValue));
    putBoth(4);
    EXPECT_EQ(passed(), " ") << "both off, both forgotten";
  }
}

TEST_F(LocalObserved, AStartNeedsBothBuffersAndTriesOnlyTheMissingOneAgain) {
  const LogLine noSensor{4, "open motion_sensor_observed reader failed\n"};
  const LogLine noMotion{4, "open motion_observed reader failed\n"};
  const LogLine failed{4, "open local motion observed shared memory failed\n"};
  enable(true, true);
  removeBuffer(kMotion);
  removeBuffer(kSensor);
  EXPECT_FALSE(sink_->source->start());
  EXPECT_EQ(log_.texts(4, "LocalHighLevelObsImpl").size(), 3U);
  EXPECT_THAT(log_.take(), ElementsAre(noSensor, noMotion, failed));

  CShmTripleBuffer tooSmall;
  ASSERT_TRUE(tooSmall.create(kMotion, sizeof(ObservedMotionRecord) - 1));
  CShmTripleBuffer sensor;
  ASSERT_TRUE(sensor.create(kSensor, sizeof(ObservedSensorRecord)));
  EXPECT_FALSE(sink_->source->start());
  EXPECT_THAT(log_.take(), ElementsAre(noMotion, failed));
  EXPECT_EQ(pass(), "");

  removeBuffer(kSensor);
  removeBuffer(kMotion);
  tooSmall.close();
  motion_.close();
  ASSERT_TRUE(motion_.create(kMotion, sizeof(ObservedMotionRecord)));
  EXPECT_TRUE(sink_->source->start());
  EXPECT_THAT(log_.take(), IsEmpty());
  putMotion(5);
  EXPECT_EQ(pass(), "motion 5");
  sink_->source->stop();
  EXPECT_FALSE(sink_->source->start()) << "a stop lets go of both";
  EXPECT_THAT(log_.take(), ElementsAre(noSensor, failed));
}

TEST_F(LocalObserved, FollowsTheWritersSuccessorAlsoWhenThatCountsFromOneAgain) {
  enable(true, false);
  for (int i = 0; i < 10; ++i) putMotion(i);
  ASSERT_TRUE(sink_->source->start());
  for (const bool afresh : {false, true}) {
    motion_.close();
    if (afresh) removeBuffer(kMotion);
    ASSERT_TRUE(motion_.create(kMotion, sizeof(ObservedMotionRecord)));
    putMotion(20);
    clock_.advance(200);
    putMotion(21);
    clock_.advance(kPassMs);
    EXPECT_EQ(sink_->told(), afresh ? "motion 21" : "motion 20 motion 21");
  }
}

TEST_F(LocalObserved, ItsClientMayBeReleasedInsideADeliveryOrInThePauseAndEndsOnItsThread) {
  for (const bool inside : {true, false}) {
    std::optional<pthread_t> deliveredOn;
    std::optional<pthread_t> endedOn;
    sink_ = std::make_shared<Sink>([&] { endedOn = ::pthread_self(); });
    sink_->source = makeLocalObserved(sink_);
    const std::weak_ptr<IHighLevelObserved> source = sink_->source;
    enable(true, true);
    ASSERT_TRUE(sink_->source->start());
    putSensor(1);
    sink_->onSensor = [&] {
      deliveredOn = ::pthread_self();
      if (inside) sink_.reset();
    };
    clock_.advance(kPassMs + 1);
    ASSERT_TRUE(deliveredOn.has_value());
    sink_.reset();
    EXPECT_EQ(endedOn.has_value(), inside) << "else the pause holds it";
    clock_.advance(kPassMs);
    ASSERT_TRUE(endedOn.has_value());
    EXPECT_TRUE(::pthread_equal(*endedOn, *deliveredOn));
    EXPECT_TRUE(source.expired());
  }
}

TEST_F(LocalObserved, WithoutAClientItIdlesUntilItIsReleased) {
  enable(true, true);
  const auto source = std::move(sink_->source);
  ASSERT_TRUE(source->start());
  sink_.reset();
  clock_.advance(kPassMs);  // the first pass may hold it still
  putMotion(1);
  clock_.advance(1000);
  ObservedPower power{};
  EXPECT_FALSE(source->copyPower(power, kAnyAge)) << "nobody is left to store it for";
  const auto before = CTime::getCurrentMilliSecond();
  source->stop();
  EXPECT_LE(CTime::getCurrentMilliSecond() - before, 5U);
}

TEST_F(LocalObserved, MayBeStoppedAndStartedInsideItsOwnDelivery) {
  enable(true, true);
  ASSERT_TRUE(sink_->source->start());
  putBoth(1);
  sink_->onSensor = [this] { sink_->source->stop(); };
  EXPECT_EQ(pass(), "sensor 1") << "no delivery begins after the stop";
  putBoth(2);
  EXPECT_EQ(pass(), "");

  ASSERT_TRUE(sink_->source->start());
  sink_->onSensor = [this, restarted = false]() mutable {
    if (std::exchange(restarted, true)) return;
    sink_->source->stop();
    EXPECT_TRUE(sink_->source->start());
  };
  putSensor(3);
  EXPECT_EQ(pass(), "sensor 3");
  putBoth(4);
  EXPECT_EQ(pass(), "sensor 4 motion 4");
}

TEST_F(LocalObserved, AStopWaitsASecondForADeliveryThatDoesNotEnd) {
  Pexal::PBase::CSemaphore goOn(0);
  enable(true, true);
  ASSERT_TRUE(sink_->source->start());
  putBoth(1);
  sink_->onSensor = [&goOn, blocked = false]() mutable {
    if (!std::exchange(blocked, true)) static_cast<void>(goOn.wait(1'000'000));
  };
  EXPECT_EQ(pass(), "sensor 1");
  const auto before = CTime::getCurrentMilliSecond();
  sink_->source->stop();
  EXPECT_EQ(CTime::getCurrentMilliSecond() - before, 1000U);
  EXPECT_THAT(log_.take(), ElementsAre(LogLine{
                               3, " an observed callback doesn't end, not waiting any longer\n"}));
  ASSERT_TRUE(sink_->source->start());
  goOn.post();
  putBoth(2);
  EXPECT_EQ(pass(), "sensor 2 motion 2") << "and nothing of the former run";
}

}  // namespace
