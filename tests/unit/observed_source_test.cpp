// The remote observed-state source against a scripted bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/writer.h>

#include <algorithm>
#include <atomic>
#include <dds/dds.hpp>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "msg/MotionTypes.h"
#include "msg_samples.h"
#include "observed/IHighLevelObserved.h"
#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/VirtualClock.h"
#include "scripted/LogPrefix.h"
#include "scripted/ScriptedBus.h"

namespace {

using namespace orvane::RobotSdk;
using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::SensorObserved_;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr const char* kMotionTopic = "motion/observed";
constexpr const char* kSensorTopic = "sensor/observed";
constexpr std::uint32_t kPatienceMs = 10'000;

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = CTime::getCurrentMilliSecond() + kPatienceMs;
  while (!condition()) {
    if (CTime::getCurrentMilliSecond() >= deadline) return false;
    CThread::sleep(1);
  }
  return true;
}

/// The source's log lines, with "N" for the line number.
class LogLines {
 public:
  LogLines()
      : id_(Pexal::ILogger::instance()->addSink([this](std::uint32_t level, const char* text, int) {
          const auto record = orvane::test::splitLogRecord(text);
          if (!record || record->unit != "RemoteHighLevelObsImpl") return;
          const std::lock_guard lock(mutex_);
          lines_.emplace_back(level, "[" + record->unit + ":N]" + record->text);
        })) {}
  ~LogLines() { Pexal::ILogger::instance()->removeSink(id_); }

  std::vector<std::pair<std::uint32_t, std::string>> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;  // guards lines_
  std::vector<std::pair<std::uint32_t, std::string>> lines_;
  Pexal::ILogger::SinkId id_;
};

/// Takes deliveries, as the client does.
class Sink final : public IObservedSink {
 public:
  void deliverMotionObserved(const ObservedMotionRecord& record) override {
    lastMotorNum = record.motorNum;
    ++motions;
    if (onMotion) onMotion();
  }
  void deliverSensorObserved(const ObservedSensorRecord& record) override {
    lastEpoch = record.odom.epoch;
    ++sensors;
  }

  std::atomic<int> motions{0};
  std::atomic<int> sensors{0};
  std::atomic<std::int32_t> lastMotorNum{0};
  std::atomic<std::uint32_t> lastEpoch{0};
  std::function<void()> onMotion;
};

class RemoteObserved : public testing::Test {
 protected:
  void enable(const char* motion, const char* sensor) {
    Json::Value params(Json::objectValue);
    if (motion != nullptr) params["motionEnable"] = std::string(motion) == "on";
    if (sensor != nullptr) params["sensorEnable"] = std::string(sensor) == "on";
    source_->setObservedEnable(params);
  }
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
  std::size_t liveReaders() {
    const auto readers = bus_.readers();
    return static_cast<std::size_t>(std::count_if(
        readers.begin(), readers.end(), [](const auto& reader) { return !reader.removed; }));
  }
  bool attached() {
    const auto readers = bus_.readers();
    return std::all_of(readers.begin(), readers.end(),
                       [](const auto& reader) { return reader.attached == 1; });
  }

  scripted::Bus bus_;
  LogLines log_;
  std::shared_ptr<Sink> sink_ = std::make_shared<Sink>();
  std::shared_ptr<IHighLevelObserved> source_ = makeRemoteObserved(sink_, "dog-7");
};

TEST_F(RemoteObserved, StartMakesBothReadersOnceAndStopHandsThemBack) {
  ASSERT_TRUE(source_->start());
  ASSERT_EQ(bus_.readers().size(), 2U);
  EXPECT_EQ(bus_.readers()[0].domain, "host");
  EXPECT_EQ(bus_.readers()[0].topic, kMotionTopic);
  EXPECT_EQ(bus_.readers()[1].domain, "host");
  EXPECT_EQ(bus_.readers()[1].topic, kSensorTopic);
  Json::Value qos;
  qos["history"] = "KEEP_LAST";
  qos["depth"] = 1;
  qos["reliability"] = "BEST_EFFORT";
  qos["durability"] = "VOLATILE";
  EXPECT_THAT(bus_.qosDocuments(), ElementsAre(qos, qos));
  EXPECT_TRUE(eventually([&] { return attached(); }));

  EXPECT_TRUE(source_->start());
  EXPECT_EQ(bus_.readers().size(), 2U);

  // The wait that this falls into would go on for a second.
  const auto before = CTime::getCurrentMilliSecond();
  source_->stop();
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, 800U);
  EXPECT_EQ(liveReaders(), 0U);
  for (const auto& reader : bus_.readers()) EXPECT_EQ(reader.attached, 0U);
  source_->stop();

  ASSERT_TRUE(source_->start());
  EXPECT_EQ(bus_.readers().size(), 4U);
  EXPECT_EQ(liveReaders(), 2U);
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
  ASSERT_TRUE(source_->start());
  for (const auto& reader : bus_.readers()) {
    for (const auto& [userData, taken] : cases) {
      EXPECT_EQ(reader.takesWriter(userData), taken) << reader.topic << ' ' << userData;
    }
  }
  const auto forAll = makeRemoteObserved(sink_, "");
  ASSERT_TRUE(forAll->start());
  EXPECT_EQ(bus_.readers().size(), 4U);
  EXPECT_FALSE(bus_.readers().back().takesWriter);
}

TEST_F(RemoteObserved, StoresAndDeliversOnlyWhatIsSwitchedOn) {
  constexpr std::uint64_t kAnyAge = std::numeric_limits<std::uint32_t>::max();
  ObservedPower power{};
  ObservedSensorRecord sensor{};
  ASSERT_TRUE(source_->start());
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(sink_->motions + sink_->sensors, 0);

  enable("on", nullptr);
  pushMotion(20, 33.5F);
  pushSensor();
  EXPECT_EQ(sink_->motions, 1);
  EXPECT_EQ(sink_->lastMotorNum, 20);
  EXPECT_EQ(sink_->sensors, 0);
  ASSERT_TRUE(source_->copyPower(power, kAnyAge));
  EXPECT_EQ(float{power.temper}, 33.5F);
  EXPECT_FALSE(source_->copySensor(sensor, kAnyAge));

  enable("on", "on");  // the unchanged switch keeps what it has
  EXPECT_TRUE(source_->copyPower(power, kAnyAge));
  pushSensor(77);
  EXPECT_EQ(sink_->lastEpoch, 77U);
  ASSERT_TRUE(source_->copySensor(sensor, kAnyAge));
  EXPECT_EQ(sensor.odom.epoch, 77U);

  enable(nullptr, "on");
  enable("on", "on");  // off and on again: forgotten
  EXPECT_FALSE(source_->copyPower(power, kAnyAge));
  EXPECT_TRUE(source_->copySensor(sensor, kAnyAge));
  source_->setObservedEnable(Json::Value(Json::objectValue));
  pushMotion();
  pushSensor();
  EXPECT_EQ(sink_->motions, 1);
  EXPECT_EQ(sink_->sensors, 1);
}

TEST_F(RemoteObserved, SwitchesOfOtherTypesAreOff) {
  ASSERT_TRUE(source_->start());
  const auto deliversWith = [&](const Json::Value& value) {
    Json::Value params;
    params["motionEnable"] = value;
    source_->setObservedEnable(params);
    const int before = sink_->motions;
    pushMotion();
    return sink_->motions > before;
  };
  EXPECT_TRUE(deliversWith(true));
  EXPECT_TRUE(deliversWith(1));
  EXPECT_TRUE(deliversWith(0.5));
  for (const Json::Value& off :
       {Json::Value(false), Json::Value(0), Json::Value(), Json::Value("true"),
        Json::Value(Json::arrayValue), Json::Value(Json::objectValue)}) {
    EXPECT_TRUE(deliversWith(true));
    EXPECT_FALSE(deliversWith(off)) << off;
  }
  for (const Json::Value& params : {Json::Value(), Json::Value("on"), Json::Value(1)}) {
    enable("on", "on");
    source_->setObservedEnable(params);
    pushMotion();
    EXPECT_EQ(sink_->sensors, 0);
  }
}

TEST(RemoteObservedTime, RecordsAgeByTheMicrosecond) {
  Pexal::PBase::VirtualClock clock(1'000'000);
  scripted::Bus bus;
  const auto sink = std::make_shared<Sink>();
  const auto source = makeRemoteObserved(sink, "");
  Json::Value params;
  params["motionEnable"] = params["sensorEnable"] = true;
  source->setObservedEnable(params);
  ASSERT_TRUE(source->start());

  ObservedPower power{};
  ObservedSensorRecord record{};
  EXPECT_FALSE(source->copyPower(power, 4'000'000'000)) << "nothing was stored yet";

  auto motion = samples::patterned<MotionObserved_>();
  auto sensor = samples::patterned<SensorObserved_>();
  bus.pushSample(kMotionTopic, &motion);
  clock.advanceMicroseconds(500);
  bus.pushSample(kSensorTopic, &sensor);
  EXPECT_TRUE(source->copyPower(power, 500));
  EXPECT_TRUE(source->copySensor(record, 0));
  clock.advanceMicroseconds(1);
  ObservedPower untouched{1, 2, 3, 4, 5};
  EXPECT_FALSE(source->copyPower(untouched, 500));
  EXPECT_EQ(float{untouched.health}, 2.0F);
  EXPECT_TRUE(source->copyPower(power, 501));
  EXPECT_FALSE(source->copySensor(record, 0));
  EXPECT_TRUE(source->copySensor(record, 1));
  clock.advance(60'000);  // time passes although the wait set's thread waits outside it
  EXPECT_TRUE(source->copySensor(record, 60'000'001));
  EXPECT_FALSE(source->copySensor(record, 60'000'000));
  source->stop();
}

TEST_F(RemoteObserved, AMissingReaderFailsTheStartAndTheNextStartTriesAfresh) {
  bus_.setSubscribersAvailable(false);
  EXPECT_FALSE(source_->start());
  EXPECT_THAT(
      log_.take(),
      ElementsAre(
          Pair(5, "[RemoteHighLevelObsImpl:N]dds host:motion/observed reader is null\n"),
          Pair(5, "[RemoteHighLevelObsImpl:N]dds host:sensor/observed reader is null\n"),
          Pair(4, "[RemoteHighLevelObsImpl:N]remote obs setup failed: dds reader unavailable\n")));

  bus_.setSubscribersAvailable(true);
  enable("on", "on");
  for (const char* topic : {kMotionTopic, kSensorTopic}) {
    bus_.failReaderCreation(topic);
    EXPECT_FALSE(source_->start());
    EXPECT_THAT(
        log_.take(),
        ElementsAre(
            Pair(4,
                 "[RemoteHighLevelObsImpl:N]create dds data reader exception:scripted reader "
                 "failure\n"),
            Pair(4,
                 "[RemoteHighLevelObsImpl:N]remote obs setup failed: dds reader unavailable\n")));
    EXPECT_EQ(liveReaders(), 0U) << "a stopped source must not deliver";
  }

  bus_.failReaderCreation("");
  EXPECT_TRUE(source_->start());
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(sink_->motions + sink_->sensors, 2);
}

TEST_F(RemoteObserved, GoesOnWhenItsWaitFails) {
  ASSERT_TRUE(source_->start());
  enable("on", "on");
  ASSERT_TRUE(eventually([&] { return attached(); }));
  dds_delete(DDS_CYCLONEDDS_HANDLE);  // takes the wait set away beneath the wait
  std::vector<std::pair<std::uint32_t, std::string>> lines;
  ASSERT_TRUE(eventually([&] { return !(lines = log_.take()).empty(); }));
  EXPECT_EQ(lines.front().first, 3U);
  EXPECT_THAT(lines.front().second,
              testing::MatchesRegex("\\[RemoteHighLevelObsImpl:N\\] remote obs wait "
                                    "exception:.*dds_waitset_wait.*\n"));
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  EXPECT_EQ(sink_->motions + sink_->sensors, 2);
  source_->stop();
  EXPECT_EQ(liveReaders(), 0U);

  log_.take();
  EXPECT_TRUE(source_->start());
  EXPECT_TRUE(
      eventually([&] { return liveReaders() == 2 && bus_.readers().back().attached == 1; }));
  source_->stop();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RemoteObserved, WithoutItsClientSamplesAreDropped) {
  ASSERT_TRUE(source_->start());
  enable("on", "on");
  sink_.reset();
  EXPECT_EQ(pushMotion() + pushSensor(), 2U);
  ObservedPower power{};
  EXPECT_FALSE(source_->copyPower(power, std::numeric_limits<std::uint32_t>::max()));
}

TEST_F(RemoteObserved, StopWaitsForTheDeliveryInFlight) {
  CSemaphore entered(0);
  CSemaphore proceed(0);
  std::atomic<bool> delivered{false};
  std::atomic<bool> deliveredBeforeStopReturned{false};
  sink_->onMotion = [&] {
    entered.post();
    static_cast<void>(proceed.wait(kPatienceMs));
    delivered = true;
  };
  ASSERT_TRUE(source_->start());
  enable("on", nullptr);
  CThreadLite robot("robot", 0, 0, 0, [&] { pushMotion(); });
  CSemaphore stopping(0);
  CThreadLite owner("owner", 0, 0, 0, [&] {
    stopping.post();
    source_->stop();
    deliveredBeforeStopReturned = delivered.load();
  });
  ASSERT_TRUE(robot.createThread());
  ASSERT_TRUE(entered.wait(kPatienceMs));
  ASSERT_TRUE(owner.createThread());
  ASSERT_TRUE(stopping.wait(kPatienceMs));
  proceed.post();
  EXPECT_TRUE(eventually([&] { return owner.isThreadOver() && robot.isThreadOver(); }));
  EXPECT_TRUE(deliveredBeforeStopReturned);
  EXPECT_EQ(pushMotion(), 0U);
}

TEST_F(RemoteObserved, MayBeStoppedOrReleasedInsideItsOwnDelivery) {
  sink_->onMotion = [&] { source_->stop(); };
  ASSERT_TRUE(source_->start());
  enable("on", "on");
  EXPECT_EQ(pushMotion(), 1U);
  EXPECT_EQ(liveReaders(), 0U);

  ASSERT_TRUE(source_->start());
  const std::weak_ptr<IHighLevelObserved> watched = source_;
  sink_->onMotion = [&] { source_.reset(); };
  EXPECT_EQ(pushMotion(), 1U);
  EXPECT_EQ(sink_->motions, 2);
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(liveReaders(), 0U);
}

TEST_F(RemoteObserved, TakesSamplesSwitchesAndStopsFromManyThreads) {
  std::atomic<bool> ended{false};
  CThreadLite robot("robot", 0, 0, 0, [&] {
    while (!ended) {
      pushMotion();
      pushSensor();
    }
  });
  CThreadLite application("application", 0, 0, 0, [&] {
    ObservedPower power{};
    ObservedSensorRecord sensor{};
    for (int i = 0; !ended; ++i) {
      enable(i % 2 == 0 ? "on" : "off", "on");
      static_cast<void>(source_->copyPower(power, 1000));
      static_cast<void>(source_->copySensor(sensor, 1000));
    }
  });
  ASSERT_TRUE(robot.createThread());
  ASSERT_TRUE(application.createThread());
  for (int i = 0; i < 5; ++i) {
    const int before = sink_->sensors;
    EXPECT_TRUE(source_->start());
    EXPECT_TRUE(eventually([&] { return sink_->sensors > before; }));
    source_->stop();
    const int after = sink_->sensors;
    EXPECT_EQ(pushSensor(), 0U);
    EXPECT_EQ(sink_->sensors, after);
  }
  ended = true;
  EXPECT_TRUE(eventually([&] { return robot.isThreadOver() && application.isThreadOver(); }));
}

}  // namespace
