// The remote observed-state source over real DDS.

#include <gtest/gtest.h>

#include <atomic>
#include <dds/dds.hpp>
#include <functional>
#include <memory>
#include <string>

#include "msg/MotionTypes.h"
#include "msg_samples.h"
#include "observed/IHighLevelObserved.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pdbus/IDDSFactory.h"

namespace {

using namespace orvane::RobotSdk;
using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::SensorObserved_;
using Pexal::PBase::CTime;
using Pexal::PDBus::IDDSFactory;

constexpr std::uint32_t kDomain = 17;

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = CTime::getCurrentMilliSecond() + 20'000;
  while (!condition()) {
    if (CTime::getCurrentMilliSecond() >= deadline) return false;
    Pexal::PBase::CThread::sleep(2);
  }
  return true;
}

class Sink final : public IObservedSink {
 public:
  void deliverMotionObserved(const ObservedMotionRecord& record) override {
    motorNum = record.motorNum;
    if (onMotion) onMotion();
  }
  void deliverSensorObserved(const ObservedSensorRecord& record) override {
    epoch = record.odom.epoch;
  }

  std::atomic<std::int32_t> motorNum{0};
  std::atomic<std::uint32_t> epoch{0};
  std::function<void()> onMotion;
};

/// The robot's half: a writer per topic, on a participant of its own.
class Robot {
 public:
  explicit Robot(const std::string& announcement = "deviceNo=dog") : announcement_(announcement) {}

  void publish(std::int32_t motorNum, std::uint32_t epoch) {
    auto motion = samples::patterned<MotionObserved_>();
    motion.motorNum = motorNum;
    motion_.write(motion);
    auto sensor = samples::patterned<SensorObserved_>();
    sensor.odom.epoch = epoch;
    sensor_.write(sensor);
  }
  [[nodiscard]] std::uint32_t listeners() const {
    return motion_.matched_subscriptions() + sensor_.matched_subscriptions();
  }

 private:
  [[nodiscard]] dds::pub::qos::DataWriterQos qos() const {
    return dds::pub::qos::DataWriterQos()
           << dds::core::policy::UserData({announcement_.begin(), announcement_.end()});
  }

  const std::string announcement_;
  dds::domain::DomainParticipant participant_{kDomain};
  dds::pub::Publisher publisher_{participant_};
  dds::pub::DataWriter<MotionObserved_> motion_{
      publisher_, dds::topic::Topic<MotionObserved_>(participant_, "motion/observed"), qos()};
  dds::pub::DataWriter<SensorObserved_> sensor_{
      publisher_, dds::topic::Topic<SensorObserved_>(participant_, "sensor/observed"), qos()};
};

class ObservedOverDds : public testing::Test {
 protected:
  void SetUp() override {
    EXPECT_FALSE(source_->start()) << "the DDS layer isn't there yet";
    Json::Value domain;
    domain["name"] = "host";
    domain["domain"] = kDomain;
    domain["url"] = "";
    Json::Value document;
    document["domain"].append(domain);
    ASSERT_TRUE(IDDSFactory::instance()->initial(document));
    Json::Value switches;
    switches["motionEnable"] = switches["sensorEnable"] = true;
    source_->setObservedEnable(switches);
    ASSERT_TRUE(source_->start());
  }
  void TearDown() override {
    source_.reset();
    IDDSFactory::instance()->shutdown();
  }

  std::shared_ptr<Sink> sink_ = std::make_shared<Sink>();
  std::shared_ptr<IHighLevelObserved> source_ = makeRemoteObserved(sink_, "dog");
};

TEST_F(ObservedOverDds, SamplesArriveUntilTheSourceStops) {
  Robot robot;
  ASSERT_TRUE(eventually([&] { return robot.listeners() == 2; }));
  std::uint32_t epoch = 0;
  // Best effort: what is sent until the readers have matched the writers may be lost.
  EXPECT_TRUE(eventually([&] {
    robot.publish(20, ++epoch);
    return sink_->motorNum == 20 && sink_->epoch > 0;
  }));
  ObservedPower power{};
  EXPECT_TRUE(source_->copyPower(power, 20'000'000));

  const auto before = CTime::getCurrentMilliSecond();
  source_->stop();
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, 800U);
  EXPECT_TRUE(eventually([&] { return robot.listeners() == 0; }));

  ASSERT_TRUE(source_->start());
  EXPECT_TRUE(eventually([&] {
    robot.publish(3, ++epoch);
    return sink_->motorNum == 3;
  }));
}

TEST_F(ObservedOverDds, TellsItsOwnRobotFromOthersOnTheSameTopics) {
  Robot own;
  Robot other("deviceNo=cat");
  std::atomic<int> foreign{0};
  sink_->onMotion = [&] {
    if (sink_->motorNum != 12) ++foreign;
  };
  ASSERT_TRUE(eventually([&] { return own.listeners() == 2 && other.listeners() == 2; }));
  std::uint32_t epoch = 0;
  EXPECT_TRUE(eventually([&] {
    own.publish(12, ++epoch);
    for (int i = 0; i < 5; ++i) other.publish(5, 1'000'000);
    return sink_->epoch >= 50;
  }));
  EXPECT_EQ(foreign, 0);
  EXPECT_LE(sink_->epoch, epoch);
}

TEST_F(ObservedOverDds, MayBeReleasedInsideItsOwnDelivery) {
  Robot robot;
  std::atomic<bool> released{false};
  sink_->onMotion = [&] {
    if (released) return;
    source_.reset();
    released = true;
  };
  EXPECT_TRUE(eventually([&] {
    robot.publish(1, 1);
    return released.load();
  }));
  EXPECT_TRUE(eventually([&] { return robot.listeners() == 0; }));
}

}  // namespace
