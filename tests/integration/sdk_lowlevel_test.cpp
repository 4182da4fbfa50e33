// The low-level client on the robot board, while robot and applications are killed, stopped and
// restarted, and beside a high-level client. Runs in the board sandbox.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Bodies.h"
#include "pbase/CShmTripleBuffer.h"
#include "sdk_joints.h"
#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedSensorRecord;
using Pexal::Memory::CShmTripleBuffer;

constexpr std::uint32_t kSessionHeld = 2;
constexpr std::uint32_t kPrepared = 3;
constexpr Seen::State kRefused{1, 2};
constexpr Seen::State kLost{4, 4};
constexpr float kFollowed = kStroke / 2;  // rad: a joint follows a stroke
constexpr float kStayed = 0.02F;          // rad: it doesn't
// What the robot's status line says.
constexpr const char* kFollowing = "drive following";
constexpr const char* kDamping = "drive damping";
constexpr const char* kWithoutSession = "damped, control free, 0.00 m/s";

std::unique_ptr<RobotProcess> startRobot(BodyKind body = BodyKind::kKinematic) {
  return std::make_unique<RobotProcess>(
      "VR-B", std::vector<std::string>{"--board", "--body", orvane_test::nameOf(body)});
}

/// The joints as the board's memory shows them to anybody, beside the client that commands them.
class Joints {
 public:
  Joints() {
    if (!buffer_.open("motion_observed", true)) throw std::runtime_error("no observed motion");
    start_ = now();
  }
  [[nodiscard]] float moved() { return movedFrom(start_, now()); }
  [[nodiscard]] bool driven() { return now().motor[0].enable == 1; }

 private:
  ObservedMotionRecord now() {
    ObservedMotionRecord record{};
    EXPECT_TRUE(waitUntil([&] {
      return buffer_.get(&record, sizeof(record), nullptr, nullptr) == CShmTripleBuffer::kCopied;
    }));
    return record;
  }

  CShmTripleBuffer buffer_;
  ObservedMotionRecord start_{};
};

/// An application that commands the joints, as a process of its own.
std::unique_ptr<Process> startApplication(std::uint32_t leaseMs) {
  return std::make_unique<Process>(
      std::vector<std::string>{SDK_CLIENT, "joints", "--board", std::to_string(leaseMs)});
}

TEST(AnApplicationThatIsKilled, LeavesDampedMotorsAndWithItsLeaseNoDrive) {
  constexpr std::uint32_t kLeaseMs = 5000;
  const auto robot = startRobot();
  Joints joints;
  const auto beforeMs = nowMs();
  const auto first = startApplication(kLeaseMs);
  ASSERT_TRUE(waitUntil([&] { return joints.moved() > kFollowed; }, kLimitMs)) << first->output();
  robot->forgetOutput();
  first->signal(SIGKILL);
  EXPECT_TRUE(robot->says(kDamping, kLimitMs)) << robot->output();
  EXPECT_TRUE(waitUntil([&] { return !joints.driven(); }, kLimitMs)) << robot->output();
  EXPECT_GE(nowMs(), beforeMs + kLeaseMs) << "not before the lease is over";
  ASSERT_TRUE(robot->says(kWithoutSession, kLimitMs)) << robot->output();
  EXPECT_LT(robot->output().find(kDamping), robot->output().find(kWithoutSession));
  EXPECT_EQ(first->finish(kLimitMs), -SIGKILL);

  robot->forgetOutput();
  const auto next = startApplication(kLeaseMs);
  EXPECT_TRUE(robot->says(kFollowing, kLimitMs)) << next->output();
  next->signal(SIGTERM);
  EXPECT_EQ(next->finish(kLimitMs), EXIT_SUCCESS) << next->output();
}

TEST(AnApplicationThatIsStopped, CommandsNothingInItsOldSessionAndGetsANewOne) {
  constexpr std::uint32_t kLeaseMs = 1800;
  constexpr std::uint32_t kStoppedMs = 2000;
  const auto robot = startRobot();
  Joints joints;
  const auto application = startApplication(kLeaseMs);
  ASSERT_TRUE(waitUntil([&] { return joints.moved() > kFollowed; }, kLimitMs));
  application->signal(SIGSTOP);
  const auto stoppedMs = nowMs();
  ASSERT_TRUE(waitUntil(
      [&] {
        return nowMs() >= stoppedMs + kStoppedMs && !joints.driven() && joints.moved() < kStayed;
      },
      kLimitMs))
      << robot->output();

  // So that it goes on for a while in the belief that the session is its own.
  ASSERT_NE(RobotProcess::tellOnBoard("delay renewWorkModeSession 500 1").find("delay"),
            std::string::npos);
  robot->forgetOutput();
  application->forgetOutput();
  application->signal(SIGCONT);
  float moved = 0;
  EXPECT_TRUE(waitUntil(
      [&] {
        moved = std::max(moved, joints.moved());
        return application->says("state 3 0", 0);
      },
      kLimitMs))
      << application->output();
  EXPECT_LT(moved, kStayed);
  EXPECT_TRUE(application->says("state 4 4\n", 0)) << application->output();
  EXPECT_TRUE(robot->says(": not of the present session", kLimitMs)) << robot->output();
  EXPECT_TRUE(robot->says("drive holding, 0 commands", kLimitMs)) << robot->output();
  EXPECT_EQ(robot->output().find(kFollowing), std::string::npos) << robot->output();
  application->signal(SIGTERM);
  EXPECT_EQ(application->finish(kLimitMs), EXIT_SUCCESS) << application->output();
}

/// The test's own low-level client.
struct LowLevel {
  LowLevel() {
    if (client) seen = Seen::watch(*client);
  }
  ~LowLevel() {
    if (client) client->disconnect();
  }

  [[nodiscard]] bool connect() const { return client && client->connect(500, 3000); }
  [[nodiscard]] bool reaches(std::uint32_t state) const {
    return waitUntil([&] { return client->getState() == state; }, kLimitMs);
  }
  [[nodiscard]] bool prepares() const { return client->setSessionFlag(true) && reaches(kPrepared); }
  [[nodiscard]] bool observes() const {
    ObservedMotionRecord motion{};
    ObservedSensorRecord sensor{};
    return client->requireObserved(&motion, kRequestMs) &&
           client->requireSensor(&sensor, kRequestMs * 1000);
  }
  /// Has the joints follow a stroke from where they are.
  [[nodiscard]] bool movesJoints() const {
    ObservedMotionRecord start{};
    ObservedMotionRecord now{};
    if (!client->requireObserved(&start, kRequestMs)) return false;
    const auto command = strokeFrom(start);
    return waitUntil(
        [&] {
          return client->publishMotorAction(&command, nullptr) &&
                 client->requireObserved(&now, kRequestMs) && movedFrom(start, now) > kFollowed;
        },
        kLimitMs);
  }

  const std::shared_ptr<IMotionLowLevelClient> client = IMotionLowLevelClient::create();
  std::shared_ptr<Seen> seen;
};

TEST(ARobotThatIsRestarted, GetsItsClientBackWithTheDriveOn) {
  auto robot = startRobot();
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const LowLevel lowLevel;
  ASSERT_TRUE(lowLevel.connect() && lowLevel.prepares() && lowLevel.movesJoints());
  for (const bool missed : {true, false}) {
    lowLevel.seen->forgetStates();
    robot->signal(SIGKILL);
    ASSERT_EQ(robot->finish(kLimitMs), -SIGKILL);
    // A robot that doesn't answer may still come back to the session.
    EXPECT_TRUE(!missed ||
                waitUntil([&] { return lowLevel.client->getLastError() == 4; }, kLimitMs));
    EXPECT_EQ(lowLevel.client->getState(), kPrepared);
    robot = startRobot();
    ASSERT_TRUE(waitUntil([&] { return lowLevel.seen->reported({kPrepared, 0}); }, kLimitMs));
    EXPECT_EQ(lowLevel.seen->states().front(), kLost);
    EXPECT_TRUE(lowLevel.movesJoints()) << lowLevel.client->getLastError();
  }
}

/// Why the robot refused a request last.
bool refusedBecause(const Client& observer, const std::string& reason) {
  return waitUntil(
      [&] { return stateText(observer, "lastRefusal.reason").find(reason) != std::string::npos; });
}

TEST(TheExampleThatStandsUp, StandsOnTheBoardAndLeavesNoSession) {
  const auto robot = startRobot(orvane_test::bodies().back());
  Process example({LOW_LEVEL_STAND, "--board"});
  EXPECT_EQ(example.finish(60000), EXIT_SUCCESS) << example.output();
  EXPECT_NE(example.output().find("It stands."), std::string::npos) << example.output();
  EXPECT_TRUE(robot->says("damped, control free", kLimitMs)) << robot->output();
  EXPECT_EQ(robot->output().find("damped, control free, low level"), std::string::npos)
      << robot->output();
}

TEST(BothClientsOfAnApplication, ExcludeEachOtherFromControlButNotFromObserving) {
  const auto robot = startRobot();
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client highLevel = connectOnBoard(false);
  ASSERT_TRUE(highLevel.handle && enableStreams(highLevel));
  const LowLevel lowLevel;
  ASSERT_TRUE(lowLevel.connect() && lowLevel.reaches(kSessionHeld));
  EXPECT_FALSE(takeControl(highLevel, 1000));
  EXPECT_TRUE(highLevel.seen->reported({1, 2}));
  EXPECT_TRUE(refusedBecause(highLevel, "the motors are under a low-level session of sdkTest"));
  EXPECT_TRUE(seesMore(highLevel) && lowLevel.observes());

  EXPECT_TRUE(lowLevel.client->disconnect());
  EXPECT_TRUE(seesMore(highLevel));
  ASSERT_TRUE(takeControl(highLevel));
  lowLevel.seen->forgetStates();
  ASSERT_TRUE(lowLevel.connect());
  EXPECT_TRUE(waitUntil([&] { return lowLevel.seen->reported(kRefused); }, kLimitMs));
  EXPECT_TRUE(refusedBecause(highLevel, "high-level control is held by sdkTest"));
  EXPECT_TRUE(lowLevel.client->disconnect());
  EXPECT_TRUE(highLevel->standing(kRequestMs)) << highLevel->getLastError();
  EXPECT_TRUE(waitUntil([&] { return stateText(highLevel, "posture") == "standing"; }, kLimitMs));

  ASSERT_TRUE(lowLevel.connect());
  ASSERT_TRUE(highLevel->releaseMotionControl());
  ASSERT_TRUE(lowLevel.prepares()) << "gets the session by itself";
  EXPECT_TRUE(seesMore(highLevel) && lowLevel.movesJoints());
  EXPECT_TRUE(highLevel->disconnect());
  EXPECT_TRUE(lowLevel.movesJoints());
  EXPECT_EQ(lowLevel.client->getState(), kPrepared);
}

}  // namespace
}  // namespace sdk_test
