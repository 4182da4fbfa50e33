// The library on the robot board: the virtual robot and other applications are processes of their
// own, the daemon is the board's. Runs in the board sandbox.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "pbase/CShmTripleBuffer.h"
#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using Pexal::Memory::CShmTripleBuffer;

constexpr std::uint32_t kSilenceMs = 300;

bool walksTo(const Client& client, double x) {
  return waitUntil(
      [&] {
        EXPECT_TRUE(client->velocityMove(0.5F, 0, 0, kRequestMs)) << client->getLastError();
        const auto sensor = client.seen->sensor();
        return !sensor.empty() && sensor.back().odom.position[0] > x;
      },
      kLimitMs);
}

bool reaches(const Client& client, const std::string& posture) {
  return waitUntil([&] { return stateText(client, "posture") == posture; }, kLimitMs);
}

bool heardOf(const Client& client, const std::string& posture) {
  const auto events = client.seen->events();
  return std::any_of(events.begin(), events.end(), [&](const std::string& detail) {
    return detail.find('"' + posture + '"') != std::string::npos;
  });
}

void standWalkAndLeave(bool asMaster) {
  const RobotProcess robot("VR-B", {"--board"});
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client client = connectOnBoard(asMaster);
  ASSERT_TRUE(client.handle && enableStreams(client));
  ASSERT_TRUE(takeControl(client));
  EXPECT_EQ(stateText(client, "control.holder"), "sdkTest");
  EXPECT_EQ(stateText(client, "control.master"), asMaster ? "brain" : "cerebellum");
  ASSERT_TRUE(client->standing(kRequestMs)) << client->getLastError();
  ASSERT_TRUE(reaches(client, "standing"));
  EXPECT_TRUE(waitUntil([&] { return heardOf(client, "standing"); }));
  ASSERT_TRUE(walksTo(client, 0.5));

  const auto motion = client.seen->motion().back();  // packed: members by value
  EXPECT_EQ(motion.reserved0, 0);
  EXPECT_EQ(motion.valid, 1);
  EXPECT_EQ(+motion.motorNum, 12);
  EXPECT_EQ(+motion.motor[11].limbsNo, 3);
  EXPECT_EQ(+motion.motor[11].jointNo, 2);
  EXPECT_EQ(motion.motor[11].enable, 1);
  const auto turn = motion.imu.quaternion;
  EXPECT_NEAR(std::hypot(std::hypot(turn.w, turn.x), std::hypot(turn.y, turn.z)), 1, 1e-3);
  EXPECT_GT(+motion.power.power, 90);
  const auto odometry = client.seen->sensor().back().odom;
  EXPECT_EQ(odometry.valid, 1);
  EXPECT_GT(odometry.velocity[0], 0.1F);
  EXPECT_EQ(odometry.position[1], 0);

  ASSERT_TRUE(client->releaseMotionControl());
  EXPECT_TRUE(waitUntil([&] { return client.seen->reported({1, 0}); }));
  EXPECT_TRUE(waitUntil([&] { return stateText(client, "control.controller").empty(); }));
  EXPECT_TRUE(reaches(client, "standing")) << "whoever gives control back leaves no walk behind";
  EXPECT_TRUE(client->disconnect());
  const auto seen = client.seen->motion().size();
  EXPECT_FALSE(waitUntil([&] { return client.seen->motion().size() > seen; }, kSilenceMs));
}

TEST(TheBoardsClient, StandsWalksAndLeavesAsMaster) {
  standWalkAndLeave(true);
}

TEST(TheBoardsClient, StandsWalksAndLeavesWhenItIsNotMaster) {
  standWalkAndLeave(false);
}

TEST(TheBoard, HasOneApplicationAtATimeWhateverBecomesOfIt) {
  const RobotProcess robot("VR-B", {"--board"});
  const auto observe = [] {
    return std::make_unique<Process>(std::vector<std::string>{SDK_CLIENT, "observe", "--master"});
  };
  const auto first = observe();
  ASSERT_TRUE(first->says("observing", kLimitMs)) << first->output();
  const auto second = observe();
  EXPECT_EQ(second->finish(kLimitMs), EXIT_FAILURE) << second->output();
  EXPECT_TRUE(
      second->says("motion sdk already running on this board "
                   "(lockfile=/tmp/orvane_motion_sdk.lock, errno=11)\n",
                   0))
      << second->output();
  first->signal(SIGKILL);
  EXPECT_EQ(first->finish(kLimitMs), -SIGKILL);
  ASSERT_EQ(::access("/tmp/orvane_motion_sdk.lock", F_OK), 0) << "the dead one's lock file stays";
  const auto third = observe();
  ASSERT_TRUE(third->says("observing", kLimitMs)) << third->output();
  third->signal(SIGTERM);
  EXPECT_EQ(third->finish(kLimitMs), EXIT_SUCCESS) << third->output();
}

TEST(TheBoard, KeepsItsClientWhenTheRobotIsRestarted) {
  auto robot = std::make_unique<RobotProcess>("VR-B", std::vector<std::string>{"--board"});
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client client = connectOnBoard(false, 2000);
  ASSERT_TRUE(client.handle && enableStreams(client));
  ASSERT_TRUE(takeControl(client));
  ASSERT_TRUE(seesMore(client));
  for (const int signal : {SIGKILL, SIGTERM}) {
    robot->signal(signal);
    ASSERT_TRUE(robot->finish(kLimitMs).has_value());
    ASSERT_TRUE(waitUntil([&] { return client->getState() != kInControl; }));
    robot = std::make_unique<RobotProcess>("VR-B", std::vector<std::string>{"--board"});
    EXPECT_TRUE(seesMore(client));
    EXPECT_TRUE(takeControl(client));
    EXPECT_EQ(stateText(client, "posture"), "lying");
  }
}

TEST(TheBoard, HasOneRobotWhoseFaultsReachTheBuffers) {
  const RobotProcess robot("VR-B", {"--board"});
  Process second({VIRTUAL_ROBOT, "--board"});
  EXPECT_EQ(second.finish(kLimitMs), 1);
  EXPECT_TRUE(second.says("does another robot serve this board?", 0)) << second.output();

  CShmTripleBuffer motion;
  CShmTripleBuffer sensor;
  ASSERT_TRUE(motion.open("motion_observed", true));
  ASSERT_TRUE(sensor.open("motion_sensor_observed", true));
  EXPECT_EQ(motion.recordSize(), 712U);
  EXPECT_EQ(sensor.recordSize(), 76U);
  struct Written {
    std::uint64_t motion;
    std::uint64_t sensor;
  };
  const auto written = [&] {
    Written now{};
    do {
      now.sensor = sensor.latestSeq();
      now.motion = motion.latestSeq();
    } while (sensor.latestSeq() != now.sensor);
    return now;
  };
  const Written begin = written();
  const auto begunMs = nowMs();
  ASSERT_TRUE(waitUntil([&] { return sensor.latestSeq() >= begin.sensor + 50; }));
  EXPECT_GE(nowMs() - begunMs, 900U) << "50 sensor records are a second";
  const Written end = written();
  EXPECT_NEAR(static_cast<double>(end.motion - begin.motion),
              static_cast<double>(10 * (end.sensor - begin.sensor)), 10);

  const auto motorsAre = [&](auto wanted) {
    return waitUntil([&] {
      orvane::RobotSdk::ObservedMotionRecord record{};
      return motion.get(&record, sizeof(record), nullptr, nullptr) == CShmTripleBuffer::kCopied &&
             wanted(record.motorNum);
    });
  };
  EXPECT_EQ(RobotProcess::tellOnBoard("nonsense"), "nonsense\n");
  EXPECT_TRUE(motorsAre([](std::int32_t number) { return number < 0 || number > 16; }));
  EXPECT_EQ(RobotProcess::tellOnBoard("sense"), "sense\n");
  EXPECT_TRUE(motorsAre([](std::int32_t number) { return number == 12; }));
  EXPECT_EQ(RobotProcess::tellOnBoard("silent"), "silent\n");
  const auto speaks = [&](std::uint32_t limitMs) {
    return waitUntil([&, last = motion.latestSeq()] { return motion.latestSeq() > last; }, limitMs);
  };
  EXPECT_TRUE(waitUntil([&] { return !speaks(kSilenceMs); }));
  EXPECT_EQ(RobotProcess::tellOnBoard("speak"), "speak\n");
  EXPECT_TRUE(speaks(kLimitMs));
}

/// An application on a machine that isn't the board: it finds no version of one.
class HostApplication : public Process {
 public:
  explicit HostApplication(const std::vector<std::string>& arguments)
      : Process(command(arguments)) {}

 private:
  static std::vector<std::string> command(const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"/usr/bin/unshare",
                                   "--mount",
                                   "/bin/sh",
                                   "-c",
                                   "mount --bind /dev/null /version && exec \"$@\"",
                                   "host"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
  }
};

TEST(ARobotOfBothSides, GivesItsOneLeaseToHostsAndToItsBoard) {
  const RobotProcess robot("VR-B", {"--board", "--host"});
  HostApplication host({SDK_CLIENT, "walk", "VR-B"});
  ASSERT_TRUE(host.says("walking", kLimitMs)) << host.output();
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  const Client board = connectOnBoard(false);
  ASSERT_TRUE(board.handle && enableStreams(board));
  EXPECT_TRUE(seesMore(board));
  EXPECT_EQ(stateText(board, "control.holder"), "sdkClient");
  EXPECT_EQ(stateText(board, "posture"), "walking");
  EXPECT_FALSE(takeControl(board, 1000)) << "the host has it";
  EXPECT_TRUE(board.seen->reported({1, 2}));
  host.signal(SIGTERM);
  EXPECT_EQ(host.finish(kLimitMs), EXIT_SUCCESS) << host.output();
  ASSERT_TRUE(takeControl(board));

  HostApplication observer({SDK_CLIENT, "observe", "VR-B"});
  EXPECT_TRUE(observer.says("observing", kLimitMs)) << observer.output();
  EXPECT_NE(robot.tell("preempt host").find("control is with host"), std::string::npos);
  EXPECT_TRUE(waitUntil([&] { return board.seen->reported({1, 5}); }));
  board.seen->forgetStates();
  EXPECT_EQ(RobotProcess::tellOnBoard("restore"), "control is with sdkTest again\n");
  EXPECT_TRUE(waitUntil([&] { return board.seen->reported({kInControl, 0}); })) << robot.output();
  EXPECT_TRUE(board->standing(kRequestMs)) << board->getLastError();
}

bool killTheBoardsDaemon() {
  pid_t pid = -1;
  std::ifstream("/run/iox-roudi.pid") >> pid;
  return pid > 0 && ::kill(pid, SIGKILL) == 0 && waitUntil([&] { return ::kill(pid, 0) != 0; });
}

/// The last of all: it leaves a board without a daemon.
TEST(TheDaemonsEnd, HarmsNoApplicationThatRunsOrStartsLater) {
  const RobotProcess robot("VR-B", {"--board"});
  {
    const Sdk sdk;
    ASSERT_TRUE(sdk.initialised());
    const Client client = connectOnBoard(true);
    ASSERT_TRUE(client.handle && enableStreams(client) && takeControl(client));
    ASSERT_TRUE(client->standing(kRequestMs) && reaches(client, "standing"));
    ASSERT_TRUE(walksTo(client, 0.1));
    ASSERT_TRUE(killTheBoardsDaemon());
    EXPECT_TRUE(seesMore(client) && walksTo(client, 0.5));
    Process daemon({"/usr/bin/iox-roudi", "--monitoring-mode", "off"});
    ASSERT_TRUE(daemon.says("RouDi is ready for clients", kLimitMs)) << daemon.output();
    EXPECT_TRUE(seesMore(client) && walksTo(client, 1));
    daemon.signal(SIGTERM);
    ASSERT_TRUE(daemon.finish(kLimitMs).has_value());
    EXPECT_TRUE(seesMore(client) && walksTo(client, 1.5));
    EXPECT_EQ(client->getState(), kInControl);
    EXPECT_TRUE(client->disconnect());
  }
  // The marker of the killed daemon is all that an application looks for.
  Process later({SDK_CLIENT, "release", "--not-master"});
  EXPECT_EQ(later.finish(2 * kLimitMs), EXIT_SUCCESS) << later.output();
}

}  // namespace
}  // namespace sdk_test
