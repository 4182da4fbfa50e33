// Low-level clients on an external host against the virtual robot: who has the motors, and what
// becomes of both when one of them dies, falls silent or comes back.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/joystick.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <dds/dds.hpp>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Bodies.h"
#include "Environment.h"
#include "msg/MotionTypes.h"
#include "orvane/RobotSdk/IMotionLowLevelClient.h"
#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using Command = orvane::msg::dds_::MotionCtrl_;
using orvane::robot::RecordFate;
using orvane::RobotSdk::IMotionLowLevelClient;
using orvane::RobotSdk::LowLevelMotorRecord;
using orvane::RobotSdk::ObservedMotionRecord;
using orvane_test::Environment;
using orvane_test::Variables;

constexpr std::uint32_t kPrepared = 3;
constexpr std::uint32_t kSilenceMs = 300;
constexpr std::size_t kThigh = 1;

/// An application's joint loop: the joints stay where they were first seen, the front left thigh
/// beside it.
class Joints {
 public:
  Joints() : client_(IMotionLowLevelClient::create()) {
    if (client_ == nullptr || !client_->connect(500, 0) || !client_->setSessionFlag(true)) {
      ADD_FAILURE() << "no low-level client";
    }
  }
  ~Joints() { client_->disconnect(); }
  Joints(const Joints&) = delete;
  Joints& operator=(const Joints&) = delete;

  IMotionLowLevelClient* operator->() const { return client_.get(); }
  [[nodiscard]] const ObservedMotionRecord& seen() const { return seen_; }
  [[nodiscard]] bool sees(std::uint32_t ms = kLimitMs) {
    return client_->requireObserved(&seen_, ms);
  }
  /// Begins where the joints are now.
  [[nodiscard]] bool begin() {
    if (!sees() || seen_.motorNum != 12) return false;
    command_.motorNum = 12;
    for (int i = 0; i < 12; ++i) {
      const auto motor = seen_.motor[i];
      command_.motor[i] = {motor.position, 0, 100, 5, 0, motor.limbsNo, motor.jointNo};
    }
    thigh_ = command_.motor[kThigh].position;
    return true;
  }
  void lean(float angle) { command_.motor[kThigh].position = thigh_ + angle; }
  [[nodiscard]] bool leans(float angle) const {
    const float position = seen_.motor[kThigh].position;
    return std::abs(position - thigh_ - angle) < 0.05F;
  }
  /// Commands until `wanted` holds.
  template <class Condition>
  [[nodiscard]] bool until(Condition wanted, std::uint32_t limitMs = kLimitMs) {
    return waitUntil(
        [&] {
          static_cast<void>(sees(20));
          EXPECT_TRUE(client_->publishMotorAction(&command_, nullptr)) << client_->getLastError();
          return wanted();
        },
        limitMs);
  }

 private:
  const std::shared_ptr<IMotionLowLevelClient> client_;
  ObservedMotionRecord seen_{};
  LowLevelMotorRecord command_{};
  float thigh_ = 0;
};

class ALowLevelClientOf : public testing::TestWithParam<BodyKind> {};
INSTANTIATE_TEST_SUITE_P(Body, ALowLevelClientOf, testing::ValuesIn(orvane_test::bodies()),
                         orvane_test::nameOfParameter);

TEST_P(ALowLevelClientOf, HasTheMotorsWhileItCommandsThemAndNobodyElseHas) {
  const LocalRobot robot("VR-S", GetParam());
  const auto refused = [&] { return robot.status().simulation.records.lastRefusal; };
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Joints first;
  ASSERT_TRUE(first.begin());
  first.lean(0.25F);
  EXPECT_TRUE(first.until([&] { return first.leans(0.25F); }));

  Joints second;
  ASSERT_TRUE(second.begin());
  EXPECT_TRUE(first.until(
      [&] { return second.until([] { return true; }) && refused() == RecordFate::kOtherWriter; }));
  const Client high = connectTo("VR-S");
  ASSERT_TRUE(high.handle && high->takeMotionControl(kLimitMs));
  EXPECT_TRUE(
      first.until([&] { return robot.status().lastRefusal.method == "takeMotionControl"; }));

  // Both fall silent.
  EXPECT_TRUE(waitUntil([&] { return high->getState() == kInControl; }, kLimitMs));
  ASSERT_TRUE(high->standing(kRequestMs)) << high->getLastError();
  EXPECT_TRUE(first.until([&] {
    return refused() == RecordFate::kControlHeld && robot.status().posture == Posture::kStanding;
  }));
  EXPECT_TRUE(high->releaseMotionControl());
  Joints third;
  ASSERT_TRUE(third.begin());
  EXPECT_TRUE(third.until([&] { return robot.status().posture == Posture::kLowLevel; }));
  EXPECT_TRUE(robot.suffers("preempt remote"));
  EXPECT_TRUE(third.until([&] { return robot.status().posture == Posture::kDamped; }));
}

TEST(ALowLevelClient, KeepsTheMotorsThroughARivalsFlood) {
  const LocalRobot robot("VR-S");
  const auto records = [&] { return robot.status().simulation.records; };
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client high = connectTo("VR-S");
  Joints joints;
  ASSERT_TRUE(high.handle && joints.begin());
  EXPECT_TRUE(joints.until([&] { return records().commands > 0; }));
  std::atomic<bool> ends{false};
  const auto flooding = std::async(std::launch::async, [&] {
    const dds::domain::DomainParticipant participant(42);
    dds::pub::DataWriter<Command> writer(dds::pub::Publisher(participant),
                                         dds::topic::Topic<Command>(participant, "motion/control"));
    while (!ends) writer.write({});
  });
  for (const float angle : {0.25F, 0.0F}) {
    const std::uint64_t before = records().refused;
    joints.lean(angle);
    EXPECT_TRUE(
        joints.until([&] { return records().refused > before + 20'000 && joints.leans(angle); }));
    EXPECT_EQ(records().lastRefusal, RecordFate::kOtherWriter);
    EXPECT_EQ(stateText(high, "posture"), "lowLevel");
  }
  ends = true;
}

TEST(ALowLevelClient, NeitherReachesASilentRobotNorHearsOfIt) {
  using Pad = orvane::msg::dds_::RemoteControl_;
  const std::string script = testing::TempDir() + "script";
  std::ofstream(script) << "0 y 1";
  orvane::robot::RobotSettings settings;
  settings.simulation.gamepad = script;
  orvane::robot::VirtualRobot robot(settings);
  std::string error;
  ASSERT_TRUE(robot.start(error)) << error;
  const dds::domain::DomainParticipant participant(42);
  dds::sub::DataReader<Pad> pad(dds::sub::Subscriber(participant),
                                dds::topic::Topic<Pad>(participant, "motion/trc"));
  const auto padShown = [&] { return pad.take().length() > 0; };
  const auto heard = [&] {
    const auto records = robot.status().simulation.records;
    return records.commands + records.refused;
  };
  const auto thigh = [&] { return robot.access().body().joints[kThigh].position; };
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Joints joints;
  ASSERT_TRUE(joints.begin());
  EXPECT_TRUE(joints.until([&] { return heard() > 0 && padShown(); }));

  ASSERT_TRUE(robot.faults().apply("silent").done);
  EXPECT_TRUE(waitUntil([&] { return !joints.sees(kSilenceMs) && !padShown(); }));
  EXPECT_EQ(robot.status().posture, Posture::kDamped);
  const std::uint64_t before = heard();
  const double start = thigh();
  joints.lean(0.25F);
  int commands = 0;
  EXPECT_TRUE(joints.until([&] { return ++commands == 20; })) << "it isn't told";
  EXPECT_EQ(heard(), before);
  EXPECT_NEAR(thigh(), start, 0.05);
  EXPECT_FALSE(padShown() || joints.sees(0));
  ASSERT_TRUE(robot.faults().apply("speak").done);
  EXPECT_TRUE(joints.until([&] { return joints.leans(0.25F) && padShown(); }));
}

TEST(ALowLevelClient, GoesOnWhenTheRobotIsKilledEndedOrRestarted) {
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Joints joints;
  EXPECT_FALSE(joints.sees(kSilenceMs)) << "it waits for no robot";
  auto robot = std::make_unique<RobotProcess>("VR-S");
  for (const int signal : {SIGKILL, SIGTERM}) {
    ASSERT_TRUE(joints.begin());
    joints.lean(0.25F);
    EXPECT_TRUE(joints.until([&] { return joints.leans(0.25F); }));

    robot->signal(signal);
    ASSERT_TRUE(robot->finish(kLimitMs).has_value());
    EXPECT_TRUE(waitUntil([&] { return !joints.sees(kSilenceMs); }));
    EXPECT_EQ(joints->getState(), kPrepared);
    robot = std::make_unique<RobotProcess>("VR-S");
  }
  joints.lean(0);
  EXPECT_TRUE(joints.until([&] { return joints.seen().motor[0].enable == 1 && joints.leans(0); }));
}

TEST(ALowLevelClient, ThatIsKilledLeavesARobotThatDampsAndIsFree) {
  const RobotProcess robot("VR-S");
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Process application({SDK_CLIENT, "hold", "VR-S"});
  ASSERT_TRUE(application.says("commanding", kLimitMs)) << application.output();
  const Client high = connectTo("VR-S");
  ASSERT_TRUE(high.handle);
  ASSERT_TRUE(waitUntil([&] { return stateText(high, "posture") == "lowLevel"; }));
  ASSERT_TRUE(enableStreams(high));
  application.signal(SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return stateText(high, "posture") == "damped"; }));
  EXPECT_EQ(stateText(high, "lowLevel.motors"), "off");
  EXPECT_TRUE(waitUntil([&] {
    const auto motion = high.seen->motion();
    return !motion.empty() && motion.back().motor[0].enable == 0;
  }));
  ASSERT_TRUE(takeControl(high));
  EXPECT_TRUE(high->standing(kRequestMs)) << high->getLastError();
  EXPECT_TRUE(waitUntil([&] { return stateText(high, "posture") == "standing"; }, kLimitMs));
}

void press(int pad, std::uint8_t button) {
  js_event event{};
  event.type = JS_EVENT_BUTTON;
  event.number = button;
  event.value = 1;
  ASSERT_EQ(::write(pad, &event, sizeof(event)), ssize_t{sizeof(event)});
}

void moveTheThighAndSeeThePad(const std::vector<std::string>& options) {
  const std::string path = testing::TempDir() + "pad";
  ::unlink(path.c_str());
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  std::vector<std::string> all{"--gamepad", path};
  all.insert(all.end(), options.begin(), options.end());
  const RobotProcess robot("VR-S", all);
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Joints joints;
  ASSERT_TRUE(joints.begin());
  joints.lean(0.25F);
  EXPECT_TRUE(joints.until([&] { return joints.leans(0.25F); }));
  EXPECT_EQ(joints.seen().remoteControl.included, 0);
  for (int plugged = 0; plugged < 2; ++plugged) {
    const int pad = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(pad, 0);
    press(pad, 3);
    EXPECT_TRUE(waitUntil([&] { return joints.sees() && joints.seen().remoteControl.y == 1; }));
    EXPECT_EQ(joints.seen().remoteControl.included, 1);
    EXPECT_EQ(+joints.seen().remoteControl.controller, 1U);
    EXPECT_EQ(joints.seen().remoteControl.a, 0);
    ::close(pad);
    EXPECT_TRUE(
        waitUntil([&] { return joints.sees() && joints.seen().remoteControl.included == 0; }));
  }
}

TEST(ALowLevelClient, MeetsTheRobotWhereAndHoweverTheySay) {
  moveTheThighAndSeeThePad({});
  {
    const Environment environment(Variables{{"ORVANE_MOTION_CONTROL_RELIABILITY", "RELIABLE"},
                                            {"ORVANE_MOTION_OBSERVED_RELIABILITY", "reliable"},
                                            {"ORVANE_MOTION_TRC_RELIABILITY", "RELIABLE"},
                                            {"ORVANE_MOTION_DDS_DOMAIN", "43"},
                                            {"ORVANE_MOTION_CONTROL_TOPIC", "sim/control"},
                                            {"ORVANE_MOTION_OBSERVED_TOPIC", "sim/observed"},
                                            {"ORVANE_MOTION_TRC_TOPIC", "sim/trc"}});
    moveTheThighAndSeeThePad({});
  }
  // In the robot's own domain, and the client alone has the environment.
  const Environment environment(Variables{{"ORVANE_MOTION_CONTROL_TOPIC", "my/control"},
                                          {"ORVANE_MOTION_OBSERVED_TOPIC", "my/observed"}});
  moveTheThighAndSeeThePad({"--control-topic", "my/control", "--observed-topic", "my/observed"});
}

TEST(ARobot, WritesEachSampleOnceAndHearsNoCommandsWhenItIsToldSo) {
  using Motion = orvane::msg::dds_::MotionObserved_;
  const dds::domain::DomainParticipant participant(42);
  const dds::sub::DataReader<Motion> reader(
      dds::sub::Subscriber(participant), dds::topic::Topic<Motion>(participant, "motion/observed"));
  const dds::pub::DataWriter<Command> writer(
      dds::pub::Publisher(participant), dds::topic::Topic<Command>(participant, "motion/control"));
  for (const bool hears : {true, false}) {
    const std::vector<std::string> deaf{"--no-sim"};
    RobotProcess robot("VR-S", hears ? std::vector<std::string>{} : deaf);
    RobotProcess other("VR-T", {"--sim-domain", "43"});
    ASSERT_TRUE(waitUntil([&] { return reader.matched_publications() >= 2; }));
    EXPECT_EQ(waitUntil([&] { return writer.matched_subscriptions() == 1; }, 1000), hears);
    EXPECT_EQ(reader.matched_publications(), 2U) << "one of each";
    for (RobotProcess* ends : {&robot, &other}) {
      ends->signal(SIGTERM);
      EXPECT_EQ(ends->finish(kLimitMs), 0) << ends->output();
    }
    ASSERT_TRUE(waitUntil([&] { return reader.matched_publications() == 0; }));
  }
}

}  // namespace
}  // namespace sdk_test
