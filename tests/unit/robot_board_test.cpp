// What the board side of the robot does below its documents: joints that are commanded one by one,
// the rate of what is observed, the motors' channels.

#include <atomic>
#include <cmath>
#include <iterator>
#include <limits>
#include <random>
#include <utility>

#include "ControlLoop.h"
#include "WaitUntil.h"
#include "body/JointModel.h"
#include "robot_support.h"
#include "shm/ShareObservedReader.h"
#include "sides/MotorChannels.h"

namespace orvane::robot {
namespace {

using namespace Robot::Motion;
using RobotBoard = RobotBench;

constexpr double kHuge = std::numeric_limits<float>::max();

TEST(JointModel, staysWithinItsLimitsWhateverIsCommanded) {
  std::mt19937 chance(7);
  const double kFigures[] = {0, 1, -1, 0.3, 40, -40, 1e3, kHuge, -kHuge};
  const auto figure = [&] { return kFigures[chance() % std::size(kFigures)]; };
  KinematicBody body;
  JointCommands commands{};
  for (int step = 0; step < 20000; ++step) {
    if (step % 20 == 0) {
      for (JointCommand& command : commands) {
        command = {figure(), figure(), std::abs(figure()), std::abs(figure()), figure(), 100};
      }
    }
    BodyCommand command;
    command.powered = step % 3000 > 200;
    command.height = 0.3;
    if (step % 3000 > 400) command.joints = &commands;
    body.step(command, step % 2 == 0 ? 0.002 : 0.001);
    const BodyState& state = body.state();
    ASSERT_TRUE(state.height >= 0.05 && state.height <= 0.45) << step << ' ' << state.height;
    ASSERT_TRUE(std::isfinite(state.imu.accel[2]));
    for (std::size_t i = 0; i < kJoints; ++i) {
      const JointState& joint = state.joints[i];
      const JointLimit& limit = kJointLimits[i % kJointsPerLeg];
      ASSERT_TRUE(joint.position >= limit.lower - 1e-9 && joint.position <= limit.upper + 1e-9);
      ASSERT_LE(std::abs(joint.torque), limit.maxTorque);
      ASSERT_TRUE(std::isfinite(joint.velocity) && std::isfinite(joint.temperature));
    }
  }
}

/// Counts what it publishes.
class CountingPublisher final : public Publisher {
 public:
  explicit CountingPublisher(bool forSessions)
      : Publisher(std::make_shared<Voice>(), forSessions) {}
  int motions = 0;
  int sensors = 0;

 private:
  void writeMotion(const BodyState&, bool) override { ++motions; }
  void writeSensors(const BodyState&, bool) override { ++sensors; }
};

TEST_F(RobotBoard, boardSeesTheRobotAtTheRateThatTheSessionAgreed) {
  const std::pair<std::uint32_t, int> kRates[] = {{1, 1},     {50, 50},   {300, 300},
                                                  {500, 500}, {750, 750}, {1000, 1000}};
  CountingPublisher board(true);
  CountingPublisher host(false);
  ControlLoop loop(*core_, {&board, &host});
  ASSERT_TRUE(loop.start());
  clock_.advance(1000);
  EXPECT_NEAR(board.motions, 500, 1) << "without a session";
  for (const auto& [hz, motions] : kRates) {
    SCOPED_TRACE(hz);
    ASSERT_EQ(told(ask("takeWorkModeSession", "pilot",
                       R"({"workMode":"lowLevel","takeToken":"t","observedHz":)" +
                           std::to_string(hz) + "}",
                       RequestServer::kMotionService)),
              "ok");
    clock_.advance(1000);
    board.motions = board.sensors = host.motions = 0;
    clock_.advance(4000);
    EXPECT_NEAR(board.motions, 4 * motions, 0.002 * motions + 1);
    EXPECT_NEAR(board.sensors, 200, 1);
    EXPECT_NEAR(host.motions, 2000, 4);
  }
  loop.stop();
}

/// With real shared memory, and so by the real clock.
TEST(MotorChannels, requestIsAnsweredInTheBufferAndOnTheDataChannel) {
  const auto outbox = std::make_shared<EventOutbox>("VR-7");
  const auto core = std::make_shared<RobotCore>(std::make_unique<KinematicBody>(), outbox);
  const auto voice = std::make_shared<Voice>();
  BufferPublisher observed(core, voice);
  MotorChannels channels(core, voice, observed);
  ASSERT_TRUE(channels.open());
  {
    MotorChannels second(core, voice, observed);
    EXPECT_FALSE(second.open()) << "a board has one robot";
  }
  std::uint64_t id = 0;
  {
    RobotCore::Access robot = core->access();
    id = std::get<WorkMode>(robot.session().take({"app", "t", {}, {}}, robot.nowMs())).id;
  }
  Json::Value control;
  control["name"] = MotorChannels::kControlName;
  ShareMotionCtrlWriter writer;
  ASSERT_TRUE(writer.init(control) && writer.open());
  Json::Value data;
  data["name"] = MotorChannels::kDataName;
  const auto reader = std::make_shared<ShareMotionDataReader>();
  std::atomic<std::uint32_t> answers{0};
  ASSERT_TRUE(reader->init(data) && reader->initial([&](const ShareLowLevelMotionData* answer) {
    if (answer->kind == kRequireObserved && answer->observed.valid == 1) ++answers;
  }));
  const auto buffer = ShareObservedReader::open(kMotionObserved);
  ASSERT_NE(buffer, nullptr);

  ShareLowLevelMotionCtrlData request{};
  request.kind = kRequireObserved;
  request.sessionId = id;
  for (std::uint32_t round = 1; round <= 3; ++round) {
    const std::uint64_t base = buffer->latestSeq();
    request.seq = round;
    ASSERT_TRUE(writer.write(request, 5));
    EXPECT_TRUE(orvane_test::waitUntil([&] { return buffer->latestSeq() == base + 1; }));
    EXPECT_TRUE(orvane_test::waitUntil([&] { return answers == round; }));
  }
  const std::uint64_t base = buffer->latestSeq();
  ++request.sessionId;
  ASSERT_TRUE(writer.write(request, 5));
  EXPECT_TRUE(
      orvane_test::waitUntil([&] { return core->access().motors().counts().refused == 1; }));
  EXPECT_EQ(buffer->latestSeq(), base);
  reader->close();
}

}  // namespace
}  // namespace orvane::robot
