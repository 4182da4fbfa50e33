// Low-level clients on other machines: who has the motors, what becomes of their commands, and the
// game pad that they are shown.

#include <fcntl.h>
#include <linux/joystick.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include "body/LegKinematics.h"
#include "gamepad/JoystickDecoder.h"
#include "gamepad/PadScript.h"
#include "gamepad/PadSource.h"
#include "robot_support.h"

namespace orvane::robot {
namespace {

using Mode = MotorControl::Mode;
using Command = msg::dds_::MotionCtrl_;

constexpr std::uint64_t kPilot = 71;
constexpr std::uint64_t kRival = 72;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

/// A robot and clients that command it from afar.
class FromAfar : public RobotBench {
 protected:
  using RobotBench::RobotBench;

  JointState joint(std::size_t index) { return core_->access().body().joints[index]; }
  Mode mode() { return core_->access().motors().mode(); }
  RecordCounts counts() { return core_->access().hold().counts(); }
  bool held() { return core_->access().hold().held(); }

  /// Holds all joints where they are, the last one first.
  Command hold() {
    Command command{};
    command.motorNum = kJoints;
    for (std::uint32_t i = 0; i < kJoints; ++i) {
      auto& motor = command.motor[kJoints - 1 - i];
      motor.position = static_cast<float>(joint(i).position);
      motor.kpGain = 300;
      motor.kdGain = 8;
      motor.header = {i / 3, i % 3};
    }
    return command;
  }
  RecordFate write(const Command& command, std::uint64_t writer = kPilot) {
    return core_->access().take(command, writer);
  }
  void holdFor(std::uint32_t ms, const Command& command) {
    for (std::uint32_t passed = 0; passed < ms; passed += 10) {
      ASSERT_EQ(write(command), RecordFate::kTaken);
      pass(10);
    }
  }
};

TEST_F(FromAfar, motorsFollowByLimbAndJointAndTheOthersHold) {
  Command command{};
  command.motorNum = 2;
  command.motor[0].header = {3, 1};
  command.motor[1].header = {0, 2};
  std::size_t index = 0;
  for (const std::size_t number : {10U, 2U}) {
    command.motor[index].position = static_cast<float>(joint(number).position) + 0.2F;
    command.motor[index].kpGain = 100;
    command.motor[index++].kdGain = 4;
  }
  const auto before = core_->access().body().joints;
  holdFor(600, command);
  EXPECT_EQ(mode(), Mode::kFollowing);
  EXPECT_EQ(posture(), "lowLevel");
  for (std::size_t i = 0; i < kJoints; ++i) {
    const bool moved = i == 10 || i == 2;
    EXPECT_NEAR(joint(i).position, before[i].position + (moved ? 0.2 : 0), 0.03) << i;
  }
  // The motor's law in numbers, one step later, and its limit.
  command.motor[0].kpGain = 10;
  command.motor[0].kdGain = 0.5F;
  command.motor[0].velocity = 2;
  command.motor[0].torque = 1.5F;
  ASSERT_EQ(write(command), RecordFate::kTaken);
  pass(2);
  const JointState now = joint(10);
  EXPECT_NEAR(now.torque,
              1.5 + 10 * (command.motor[0].position - now.position) + 0.5 * (2 - now.velocity),
              1e-3);
  command.motor[0].torque = 1000;
  ASSERT_EQ(write(command), RecordFate::kTaken);
  pass(2);
  EXPECT_EQ(joint(10).torque, kJointLimits[1].maxTorque);
}

/// What depends on how the body answers its motors.
class FromAfarOn : public FromAfar, public testing::WithParamInterface<BodyKind> {
 protected:
  FromAfarOn() : FromAfar(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Body, FromAfarOn, testing::ValuesIn(orvane_test::bodies()),
                         orvane_test::nameOfParameter);

TEST_P(FromAfarOn, silenceOfAHundredMillisecondsDampsAndFreesTheBody) {
  ask("releaseMotionControl", standUp());
  const double standing = height();
  holdFor(500, hold());
  EXPECT_NEAR(height(), standing, 0.02);
  auto reply = ask("takeMotionControl", "app");
  EXPECT_EQ(told(reply), "refused 16");
  EXPECT_NE(reply.document["reason"].asString().find("low-level client"), std::string::npos);

  ASSERT_EQ(write(hold()), RecordFate::kTaken);
  pass(MotorControl::kSilenceMs - 2);
  EXPECT_TRUE(held());
  EXPECT_EQ(mode(), Mode::kFollowing);
  pass(2);
  EXPECT_FALSE(held());
  EXPECT_EQ(mode(), Mode::kOff);
  EXPECT_EQ(posture(), "damped");

  // Whoever comes back catches the sinking robot, from where it is.
  Command late = hold();
  pass(100);
  EXPECT_LT(height(), standing - 0.005);
  late.motor[0].position += 0.31F;
  EXPECT_EQ(write(late), RecordFate::kTooFar);
  EXPECT_FALSE(held());
  const double caught = height();
  holdFor(500, hold());
  EXPECT_NEAR(height(), caught, 0.03);

  pass(3000);
  EXPECT_NEAR(height(), kLyingHeight, 0.01);
  EXPECT_FALSE(core_->access().body().powered);
  const std::string holder = take();
  EXPECT_EQ(told(act(holder, "standing")), "ok");
  pass(4000);
  EXPECT_EQ(posture(), "standing");
}

TEST_F(FromAfar, nobodyCommandsARobotThatSomebodyElseHasOrThatMoves) {
  const auto refused = [&] {
    const RecordFate fate = write(hold());
    EXPECT_FALSE(held());
    EXPECT_EQ(counts().lastRefusal, fate);
    return fate;
  };
  const std::string holder = take();
  EXPECT_EQ(refused(), RecordFate::kControlHeld);
  act(holder, "standing");
  pass(500);
  ask("releaseMotionControl", holder);
  EXPECT_EQ(refused(), RecordFate::kUnsettled);
  pass(4000);
  ASSERT_EQ(write(hold()), RecordFate::kTaken);

  const std::string kSession = R"({"workMode":"lowLevel","takeToken":"t"})";
  const auto takeSession = [&] {
    return told(ask("takeWorkModeSession", "pilot", kSession, RequestServer::kMotionService));
  };
  EXPECT_EQ(takeSession(), "refused 16");
  EXPECT_TRUE(faults_.apply("preempt").done);
  EXPECT_FALSE(held()) << "over everybody's head";
  EXPECT_EQ(posture(), "damped");
  EXPECT_EQ(refused(), RecordFate::kControlHeld);
  EXPECT_TRUE(faults_.apply("revoke").done);

  EXPECT_EQ(takeSession(), "ok");
  EXPECT_EQ(refused(), RecordFate::kSessionHeld);
  EXPECT_TRUE(faults_.apply("endsession").done);
  pass(2000);
  const std::string again = take();
  ask("emergencyStopMotion", again);
  ask("releaseMotionControl", again);
  EXPECT_EQ(refused(), RecordFate::kEmergencyStopped);
  EXPECT_EQ(counts().refused, 5U);
  EXPECT_EQ(counts().commands, 1U);
}

TEST_F(FromAfar, theFirstOfTwoClientsHasTheMotorsUntilItIsSilent) {
  ASSERT_EQ(write(hold(), kPilot), RecordFate::kTaken);
  pass(60);
  EXPECT_EQ(write(hold(), kRival), RecordFate::kOtherWriter);
  ASSERT_EQ(write(hold(), kPilot), RecordFate::kTaken);
  pass(98);
  EXPECT_EQ(write(hold(), kRival), RecordFate::kOtherWriter) << "which prolongs nothing";
  pass(2);
  EXPECT_EQ(write(hold(), kRival), RecordFate::kTaken);
  EXPECT_EQ(write(hold(), kPilot), RecordFate::kOtherWriter);
  EXPECT_EQ(counts().refused, 3U);
  const Json::Value shown = state()["simulation"];
  EXPECT_TRUE(shown["active"].asBool());
  EXPECT_EQ(shown["commands"].asUInt(), 3U);
  EXPECT_EQ(shown["lastRefusal"].asString(), "another client commands the motors");
}

// All of what the motors refuse is in robot_lowlevel_test.cpp; these are the wider numbers of a
// sample, and what a refusal means for who has the motors.
TEST_F(FromAfar, malformedCommandsAreRefusedWholeAndProlongNothing) {
  const auto refused = [&](const std::function<void(Command&)>& spoil) {
    Command command = hold();
    spoil(command);
    return write(command);
  };
  using Fate = RecordFate;
  EXPECT_EQ(refused([](Command& c) { c.motorNum = 0xFFFFFFFF; }), Fate::kBadMotorCount);
  EXPECT_EQ(refused([](Command& c) { c.motor[11].header.limbsNo = 0x10000; }), Fate::kUnknownMotor);
  EXPECT_EQ(refused([](Command& c) { c.motor[11].header.jointNo = 0xFFFF0001; }),
            Fate::kUnknownMotor);
  EXPECT_EQ(refused([](Command& c) { c.motor[11].position += 1; }), Fate::kTooFar);
  EXPECT_FALSE(held());
  EXPECT_EQ(counts().refused, 4U);
  ASSERT_EQ(write(hold()), Fate::kTaken);
  pass(60);
  EXPECT_EQ(refused([](Command& c) { c.motor[0].torque = kNan; }), Fate::kBadValue);
  pass(40);
  EXPECT_FALSE(held());
}

TEST(PadScript, playsByTheClockAndBeginsAnewOrEnds) {
  auto parsed = PadScript::parse(
      "# walks ahead\n"
      "100 stickLY 0.5 a 1\r\n\n"
      "100 triggerR 1\n"
      "200 a 0 # released\n"
      "1000 repeat");
  ASSERT_TRUE(std::holds_alternative<PadScript>(parsed)) << std::get<std::string>(parsed);
  auto& script = std::get<PadScript>(parsed);
  struct Row {
    std::uint64_t ms;
    float stickLY;
    int a;
  };
  const Row kRows[] = {{0, 0, 0},         {99, 0, 0},       {100, 0.5F, 1}, {199, 0.5F, 1},
                       {200, 0.5F, 0},    {999, 0.5F, 0},   {1000, 0, 0},   {1150, 0.5F, 1},
                       {70'300, 0.5F, 0}, {7'000'001, 0, 0}};
  for (const Row& row : kRows) {
    PadState state{};
    EXPECT_TRUE(script.at(row.ms, state));
    EXPECT_EQ(state.stickLY, row.stickLY) << row.ms;
    EXPECT_EQ(state.triggerR, row.stickLY * 2) << row.ms;
    EXPECT_EQ(state.a, row.a) << row.ms;
  }
  auto ending = std::get<PadScript>(PadScript::parse("0 rs 1\n50 end\n"));
  PadState state{};
  EXPECT_TRUE(ending.at(49, state));
  EXPECT_EQ(state.rs, 1);
  EXPECT_FALSE(ending.at(50, state));
  EXPECT_TRUE(std::get<PadScript>(PadScript::parse("5 x 1")).at(PadScript::kLatestMs, state));
  EXPECT_EQ(state.x, 1) << "it stays as it was last";
}

TEST(PadScript, saysWhatIsWrongAndWhere) {
  const std::pair<std::string, const char*> kRows[] = {
      {"0 a 1\n-5 a 0", "line 2: \"-5\" is no time"},
      {"86400001 a 1", "is no time"},
      {"5 a 1\n\n4 a 0", "line 3: its time lies before"},
      {"5 a", "a must be 0 or 1"},
      {"5 stickLX nan", "stickLX must be -1 to 1"},
      {"5 stick\x1bLX 0", "no button, stick or trigger \"stick?LX\""},
      {"0 repeat", "can't repeat in no time"},
      {std::string(PadScript::kLongestText + 1, '#'), "longer than"}};
  for (const auto& [text, wrong] : kRows) {
    const auto parsed = PadScript::parse(text);
    const auto* const error = std::get_if<std::string>(&parsed);
    ASSERT_NE(error, nullptr) << text;
    EXPECT_NE(error->find(wrong), std::string::npos) << *error;
  }
}

std::string event(int type, int number, int value) {
  js_event made{};
  made.type = static_cast<std::uint8_t>(type);
  made.number = static_cast<std::uint8_t>(number);
  made.value = static_cast<std::int16_t>(value);
  return {reinterpret_cast<const char*>(&made), sizeof(made)};
}

TEST(JoystickDecoder, makesAStateOfEventsThatComeInPieces) {
  constexpr int kAxis = JS_EVENT_AXIS;
  constexpr int kButton = JS_EVENT_BUTTON;
  const std::string bytes = event(kButton | JS_EVENT_INIT, 0, 1) + event(kButton, 7, 1) +
                            event(kButton, 3, 1) + event(kButton, 3, 0) +
                            event(kAxis | JS_EVENT_INIT, 2, -32767) + event(kAxis, 0, -32768) +
                            event(kAxis, 1, -32767) + event(kAxis, 5, 32767) +
                            event(kAxis, 6, -32767) + event(kAxis, 7, 32767) + event(kAxis, 4, 0) +
                            // What the pad of a message doesn't have.
                            event(kButton, 12, 1) + event(kAxis, 8, 9) + event(kButton, 255, 1) +
                            event(kAxis, 255, 1) + event(4, 0, 0);
  JoystickDecoder decoder;
  constexpr std::size_t kPiece = 11;
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
    decoder.feed(std::as_bytes(std::span(bytes).subspan(at, std::min(kPiece, bytes.size() - at))));
  }
  PadState wanted{};
  wanted.a = wanted.start = wanted.left = wanted.down = 1;
  wanted.stickLX = -1;
  wanted.stickLY = 1;
  wanted.triggerR = 1;
  const PadState& state = decoder.state();
  for (const PadButton& button : kPadButtons) {
    EXPECT_EQ(state.*button.member, wanted.*button.member) << button.name;
  }
  for (const PadAxis& axis : kPadAxes) {
    EXPECT_EQ(state.*axis.member, wanted.*axis.member) << axis.name;
  }
}

/// A place of its own for files and FIFOs, on the virtual clock.
class PadAt : public testing::Test {
 protected:
  PadAt() {
    std::string pattern = testing::TempDir() + "padXXXXXX";
    folder_ = ::mkdtemp(pattern.data());
  }
  ~PadAt() override { std::filesystem::remove_all(folder_); }

  void makeFifo() {
    std::filesystem::remove(path());
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  }
  /// The other end of the FIFO.
  int plugIn() {
    const int fd = ::open(path().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_GE(fd, 0) << "nobody reads";
    return fd;
  }
  [[nodiscard]] std::string path() const { return folder_ + "/pad"; }

  std::string folder_;
};

TEST_F(PadAt, aFifoIsThereWhileSomebodyWritesAndComesBackUntouched) {
  std::string error;
  const auto source = openPadSource(path(), error);
  ASSERT_NE(source, nullptr) << error;
  PadState state{};
  std::uint64_t nowMs = 1'000'000;
  const auto there = [&] { return source->poll(nowMs += 200, state); };
  EXPECT_FALSE(there()) << "not yet";
  for (int fifo = 0; fifo < 2; ++fifo) {  // the second one takes the first one's place
    makeFifo();
    EXPECT_FALSE(there());
    for (int writer = 0; writer < 2; ++writer) {
      const int pad = plugIn();
      ASSERT_TRUE(there());
      EXPECT_EQ(state.a, 0) << "untouched";
      const std::string press = event(JS_EVENT_BUTTON, 0, 1);
      ASSERT_EQ(::write(pad, press.data(), press.size()), ssize_t{sizeof(js_event)});
      ASSERT_EQ(::write(pad, press.data(), 3), 3) << "half an event is forgotten with its writer";
      ASSERT_TRUE(there());
      EXPECT_EQ(state.a, 1);
      ::close(pad);
      EXPECT_FALSE(there());
    }
  }
  // As much as comes, but no more than a piece at a time.
  const int flood = plugIn();
  const std::string events(60'000 / 8 * 8, '\0');
  ASSERT_EQ(::write(flood, events.data(), events.size()), static_cast<ssize_t>(events.size()));
  ASSERT_TRUE(there());
  ::close(flood);
  EXPECT_TRUE(there()) << "what was written is read though the writer is gone";
}

TEST_F(PadAt, scriptsBeginWithTheFirstLookAndBadPlacesAreRefused) {
  std::ofstream(path()) << "20 b 1\n";
  std::string error;
  const auto source = openPadSource(path(), error);
  ASSERT_NE(source, nullptr) << error;
  PadState state{};
  EXPECT_TRUE(source->poll(5000, state));
  EXPECT_EQ(state.b, 0);
  EXPECT_TRUE(source->poll(5020, state));
  EXPECT_EQ(state.b, 1);

  std::ofstream(path()) << "20 b 7\n";
  EXPECT_EQ(openPadSource(path(), error), nullptr);
  EXPECT_NE(error.find("line 1: b must be 0 or 1"), std::string::npos) << error;
  EXPECT_EQ(openPadSource(folder_, error), nullptr);
  EXPECT_NE(error.find("neither a script nor"), std::string::npos) << error;
  EXPECT_EQ(openPadSource(path() + "/under", error), nullptr);
  EXPECT_NE(error.find("Not a directory"), std::string::npos) << error;
}

}  // namespace
}  // namespace orvane::robot
