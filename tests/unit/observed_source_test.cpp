// The remote observed-state source against a scripted bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/writer.h>

#include <atomic>
#include <dds/dds.hpp>
#include <functional>
#include <limits>

#include "WaitUntil.h"
#include "msg/MotionTypes.h"
#include "msg_samples.h"
#include "observed/IHighLevelObserved.h"
#include "pbase/VirtualClock.h"
#include "scripted/LogLines.h"
#include "scripted/ScriptedBus.h"

namespace {

using namespace orvane::RobotSdk;
using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::SensorObserved_;
using orvane_test::waitUntil;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
using scripted::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kMotionTopic = "motion/observed";
constexpr const char* kSensorTopic = "sensor/observed";
constexpr std::uint64_t kAnyAge = std::numeric_limits<std::uint32_t>::max();

/// Takes deliveries, as the client does.
class Sink final : public IObservedSink {
 public:
  void deliverMotionObserved(const ObservedMotionRecord& record) override {
    motorNum = record.motorNum;
    ++motions;
    if (onMotion) onMotion();
  }
  void deliverSensorObserved(const ObservedSensorRecord& record) override {
    epoch = record.odom.epoch;
    ++sensors;
  }

  std::atomic<int> motions{0};
  std::atomic<int> sensors{0};
  std::atomic<std::int32_t> motorNum{0};
  std::atomic<std::uint32_t> epoch{0};
  std::function<void()> onMotion;
};

Json::Value switches(bool motion, bool sensor) {
  Json::Value params;
  params["motionEnable"] = motion;
  params["sensorEnable"] = sensor;
  return params;
}

class RemoteObserved : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(source_->start()); }

  void enable(bool motion, bool sensor) { source_->setObservedEnable(switches(motion, sensor)); }
  std::size_t pushMotion(std::int32_t motorNum = 12, float temper = 30.0F) {
    auto sample = samples::patterned<MotionObserved_>();
    sample.motorNum = motorNum;
    sample.power.temper = temper;
    return bus_.pushSample(kMotionTopic, &sample);
  }
  std::size_t pushSensor(std::uint32_t epoch = 1) {
    auto sample = samples::patterned<SensorObserved_>();
    sample.odom.epoch = epoch;
    return bus_.pushSample(kSensorTopic, &sample);
  }
  /// How many readers the source has now, and how many of them its wait set.
  std::string readers() {
    std::size_t live = 0;
    std::size_t attached = 0;
    for (const auto& reader : bus_.readers()) {
      live += reader.removed ? 0 : 1;
      attached += reader.attached;
    }
    return std::to_string(live) + " live " + std::to_string(attached) + " attached";
  }
  bool becomeReady() {
    return waitUntil([this] { return readers() == "2 live 2 attached"; });
  }

  scripted::Bus bus_;
  scripted::CapturedLog log_;
  std::shared_ptr<Sink> sink_ = std::make_shared<Sink>();
  std::shared_ptr<IHighLevelObserved> source_ = makeRemoteObserved(sink_, "dog-7");
};

TEST_F(RemoteObserved, StartMakesBothReadersOnceAndStopHandsThemBack) {
  Json::Value qos;
  qos["history"] = "KEEP_LAST";
  qos["depth"] = 1;
  qos["reliability"] = "BEST_EFFORT";
  qos["durability"] = "VOLATILE";
  EXPECT_THAT(bus_.seen().qosDocuments, ElementsAre(qos, qos));
  EXPECT_TRUE(source_->start());
  const auto made = bus_.readers();
  ASSERT_EQ(made.size(), 2U);
  EXPECT_EQ(made[0].domain + ' ' + made[0].topic, "host motion/observed");
  EXPECT_EQ(made[1].domain + ' ' + made[1].topic, "host sensor/observed");
  EXPECT_TRUE(becomeReady());

  const auto before = CTime::getCurrentMilliSecond();
  source_->stop();
  source_->stop();
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, 800U) << "the wait would go on for a second";
  EXPECT_EQ(readers(), "0 live 0 attached");

  ASSERT_TRUE(source_->start());
  EXPECT_TRUE(becomeReady());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RemoteObserved, ListensToTheWritersOfItsDeviceAndToThoseThatDoNotSay) {
  const std::pair<std::string, bool> cases[] = {{"deviceNo=dog-7", true},
                                                {"deviceNo=cat", false},
                                                {"deviceNo=dog-77", false},
                                                {"deviceNo=dog", false},
                                                {"deviceNo=dog-7 ", false},
                                                {"deviceNo=DOG-7", false},
                                                {"deviceNo=", true},
                                                {"", true},
                                                {"cat", true},
                                                {"owner=x", true},
                                                {std::string("deviceNo=dog-7\0", 15), false}};
  for (const auto& reader : bus_.readers()) {
    for (const auto& [userData, taken] : cases) {
      EXPECT_EQ(reader.takesWriter(userData), taken) << reader.topic << ' ' << userData;
    }
  }
  const auto forAll = makeRemoteObserved(sink_, "");
  ASSERT_TRUE(forAll->start());
  EXPECT_FALSE(bus_.readers().back().takesWriter);
}

TEST_F(RemoteObserved, StoresAndDeliversOnlyWhatIsSwitchedOn) {
  ObservedPower power{};
  ObservedSensorRecord sensor{};
  const auto stored = [&] {
    return std::string(source_->copyPower(power, kAnyAge) ? "power " : "") +
           (source_->copySensor(sensor, kAnyAge) ? "sensor" : "");
  };
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(sink_->motions + sink_->sensors, 0);

  enable(true, false);
  pushMotion(20, 33.5F);
  pushSensor();
  EXPECT_EQ(stored(), "power ");
  EXPECT_EQ(sink_->motorNum, 20);
  EXPECT_EQ(float{power.temper}, 33.5F);

  enable(true, true);
  EXPECT_EQ(stored(), "power ") << "the unchanged switch keeps what it has";
  pushSensor(77);
  EXPECT_EQ(stored(), "power sensor");
  EXPECT_EQ(sink_->epoch, 77U);
  EXPECT_EQ(sensor.odom.epoch, 77U);

  enable(false, true);
  enable(true, true);
  EXPECT_EQ(stored(), "sensor") << "off and on again: forgotten";
  EXPECT_EQ(sink_->motions, 1);
  EXPECT_EQ(sink_->sensors, 1);
  sink_.reset();
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(stored(), "sensor") << "nobody is left to store it for";
}

TEST_F(RemoteObserved, OnlyABoolOrANumberSwitchesOn) {
  const auto delivers = [&](const Json::Value& params) {
    enable(true, true);
    source_->setObservedEnable(params);
    const int before = sink_->motions;
    pushMotion();
    return sink_->motions > before;
  };
  const std::pair<Json::Value, bool> cases[] = {{true, true},
                                                {1, true},
                                                {0.5, true},
                                                {false, false},
                                                {0, false},
                                                {Json::Value(), false},
                                                {"true", false},
                                                {Json::Value(Json::arrayValue), false},
                                                {Json::Value(Json::objectValue), false}};
  for (const auto& [value, on] : cases) {
    Json::Value params;
    params["motionEnable"] = value;
    EXPECT_EQ(delivers(params), on) << value;
  }
  for (const Json::Value& other : {Json::Value(), Json::Value("on"), Json::Value(1)}) {
    EXPECT_FALSE(delivers(other)) << other;
  }
}

TEST(RemoteObservedTime, RecordsAgeByTheMicrosecond) {
  Pexal::PBase::VirtualClock clock(1'000'000);
  scripted::Bus bus;
  const auto sink = std::make_shared<Sink>();
  const auto source = makeRemoteObserved(sink, "");
  source->setObservedEnable(switches(true, true));
  ASSERT_TRUE(source->start());
  ObservedPower power{1, 2, 3, 4, 5};
  ObservedSensorRecord record{};
  EXPECT_FALSE(source->copyPower(power, 4'000'000'000)) << "nothing was stored yet";

  auto motion = samples::patterned<MotionObserved_>();
  auto sensor = samples::patterned<SensorObserved_>();
  bus.pushSample(kMotionTopic, &motion);
  clock.advanceMicroseconds(501);
  bus.pushSample(kSensorTopic, &sensor);
  EXPECT_FALSE(source->copyPower(power, 500));
  EXPECT_EQ(float{power.health}, 2.0F) << "untouched";
  EXPECT_TRUE(source->copyPower(power, 501));
  EXPECT_TRUE(source->copySensor(record, 0));
  clock.advance(60'000);  // time passes although the wait set's thread waits outside it
  EXPECT_TRUE(source->copySensor(record, 60'000'000));
  EXPECT_FALSE(source->copySensor(record, 59'999'999));
  source->stop();
}

TEST_F(RemoteObserved, AMissingReaderFailsTheStartAndTheNextStartTriesAfresh) {
  source_->stop();
  enable(true, true);
  const LogLine failed{4, "remote obs setup failed: dds reader unavailable\n"};
  bus_.behave({.subscribers = false});
  EXPECT_FALSE(source_->start());
  EXPECT_THAT(log_.take(),
              ElementsAre(LogLine{5, "dds host:motion/observed reader is null\n"},
                          LogLine{5, "dds host:sensor/observed reader is null\n"}, failed));
  for (const char* topic : {kMotionTopic, kSensorTopic}) {
    bus_.behave({.failingReader = topic});
    EXPECT_FALSE(source_->start());
    EXPECT_THAT(
        log_.take(),
        ElementsAre(LogLine{4, "create dds data reader exception:scripted failure\n"}, failed));
    EXPECT_EQ(readers(), "0 live 0 attached") << "a stopped source must not deliver";
  }
  bus_.behave({});
  EXPECT_TRUE(source_->start());
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(sink_->motions + sink_->sensors, 2);
}

TEST_F(RemoteObserved, GoesOnWhenItsWaitFails) {
  enable(true, true);
  ASSERT_TRUE(becomeReady());
  dds_delete(DDS_CYCLONEDDS_HANDLE);  // takes the wait set away beneath the wait
  std::vector<LogLine> lines;
  ASSERT_TRUE(waitUntil([&] { return !(lines = log_.take()).empty(); }));
  EXPECT_EQ(lines.front().level, 3U);
  EXPECT_EQ(lines.front().unit, "RemoteHighLevelObsImpl");
  EXPECT_THAT(lines.front().text,
              testing::MatchesRegex(" remote obs wait exception:.*dds_waitset_wait.*\n"));
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(sink_->motions + sink_->sensors, 2);
  source_->stop();
  log_.take();
  EXPECT_TRUE(source_->start());
  EXPECT_TRUE(waitUntil([&] { return bus_.readers().back().attached == 1; }));
  source_->stop();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RemoteObserved, MayBeStoppedOrReleasedInsideItsOwnDelivery) {
  enable(true, true);
  sink_->onMotion = [&] { source_->stop(); };
  EXPECT_EQ(pushMotion(), 1U);
  EXPECT_EQ(readers(), "0 live 0 attached");

  ASSERT_TRUE(source_->start());
  const std::weak_ptr<IHighLevelObserved> watched = source_;
  sink_->onMotion = [&] { source_.reset(); };
  EXPECT_EQ(pushMotion(), 1U);
  EXPECT_EQ(sink_->motions, 2);
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(readers(), "0 live 0 attached");
}

TEST_F(RemoteObserved, TakesSamplesSwitchesAndStopsFromManyThreads) {
  std::atomic<bool> ended{false};
  CThreadLite robot("robot", 0, 0, 0, [&] {
    while (!ended) pushMotion(), pushSensor();
  });
  CThreadLite application("application", 0, 0, 0, [&] {
    ObservedPower power{};
    ObservedSensorRecord sensor{};
    for (int i = 0; !ended; ++i) {
      enable(i % 2 == 0, true);
      static_cast<void>(source_->copyPower(power, 1000));
      static_cast<void>(source_->copySensor(sensor, 1000));
    }
  });
  ASSERT_TRUE(robot.createThread());
  ASSERT_TRUE(application.createThread());
  for (int i = 0; i < 5; ++i) {
    const int before = sink_->sensors;
    EXPECT_TRUE(source_->start());
    EXPECT_TRUE(waitUntil([&] { return sink_->sensors > before; }));
    source_->stop();
  }
  ended = true;
  EXPECT_TRUE(waitUntil([&] { return robot.isThreadOver() && application.isThreadOver(); }));
}

}  // namespace
