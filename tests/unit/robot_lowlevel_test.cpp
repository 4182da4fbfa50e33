// Low-level sessions: who may command the motors, and what the motors make of it.

#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <utility>

#include "body/LegKinematics.h"
#include "robot_support.h"

namespace orvane::robot {
namespace {

using namespace Robot::Motion;
using Mode = MotorControl::Mode;
using Record = ShareLowLevelMotionCtrlData;

constexpr std::uint64_t kStart = 1'000'000;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kHuge = std::numeric_limits<float>::max();

/// What a session's judge answers: "" for yes, else the reason's number.
std::string text(const std::optional<Refusal>& refusal) {
  return refusal ? std::to_string(static_cast<int>(refusal->reason)) : "";
}

TEST(WorkModeSession, oneHoldsAtATimeUntilItsLeaseEndsAndNoNumberComesBack) {
  WorkModeSession judge(41);
  const auto take = [&](const std::string& token, std::uint64_t nowMs) {
    const auto taken = judge.take({"app", token, 500, 2000}, nowMs);
    const auto* refusal = std::get_if<Refusal>(&taken);
    return refusal ? text(*refusal) : "s" + std::to_string(std::get<WorkMode>(taken).id);
  };
  EXPECT_EQ(text(judge.renew(42, kStart)), "9") << "nobody has it yet";
  EXPECT_EQ(take("A", kStart), "s42");
  EXPECT_EQ(take("B", kStart + 1), "16");
  EXPECT_EQ(take("A", kStart + 2), "s43") << "its answer was lost";
  EXPECT_EQ(text(judge.renew(42, kStart + 3)), "9");
  EXPECT_EQ(text(judge.renew(43, kStart + 2001)), "");
  EXPECT_EQ(text(judge.check(43, kStart + 4000)), "");
  EXPECT_EQ(text(judge.renew(43, kStart + 4001)), "9") << "the lease is over";
  EXPECT_EQ(take("B", kStart + 4001), "s44");
  EXPECT_EQ(text(judge.finish(43, WorkModeSession::End::kReleased, kStart + 4002)), "9");
  EXPECT_EQ(text(judge.finish(44, WorkModeSession::End::kReleased, kStart + 4002)), "");
  EXPECT_EQ(take("A", kStart + 4003), "s45");

  std::set<std::uint64_t> starts;
  for (int robot = 0; robot < 20; ++robot) {
    const auto taken = WorkModeSession().take({"app", "A", {}, {}}, kStart);
    EXPECT_TRUE(starts.insert(std::get<WorkMode>(taken).id >> 32).second);
  }
}

/// A robot and one low-level client.
class LowLevel : public RobotBench {
 protected:
  using RobotBench::RobotBench;

  Pexal::PDBus::RpcReply motion(const std::string& method, const std::string& params = "") {
    return ask(method, "pilot", params, RequestServer::kMotionService);
  }
  /// The same with the session's number in front of `more`.
  Pexal::PDBus::RpcReply session(const std::string& method, const std::string& more = "") {
    return motion(method, "{\"sessionId\":" + std::to_string(id_) + more + "}");
  }
  Pexal::PDBus::RpcReply takeAs(const std::string& token, std::uint32_t leaseMs = 60000,
                                std::uint32_t hz = 500) {
    return motion("takeWorkModeSession", R"({"workMode":"lowLevel","shmMode":true,"takeToken":")" +
                                             token + R"(","observedHz":)" + std::to_string(hz) +
                                             R"(,"leaseTimeout":)" + std::to_string(leaseMs) + "}");
  }
  void takeSession(std::uint32_t leaseMs = 60000) {
    const auto reply = takeAs("t", leaseMs);
    ASSERT_EQ(told(reply), "ok") << reply.document.toStyledString();
    id_ = reply.document["params"]["sessionId"].asUInt64();
    number_ = 0;
  }
  /// Whether the drive is on, or what was told instead.
  std::string enable(bool on = true) {
    const auto reply = session("setMotionPrepare", on ? ",\"enable\":true" : ",\"enable\":false");
    if (told(reply) != "ok") return told(reply);
    return reply.document["params"]["ready"].asBool() ? "ready" : "not ready";
  }
  void prepare() {
    takeSession();
    EXPECT_EQ(enable(), "not ready");
    pass(WorkModeSession::kPowerUpMs);
    ASSERT_EQ(enable(), "ready");
    pass(2);
  }
  void standAndPrepare() {
    ask("releaseMotionControl", standUp());
    prepare();
  }

  Record record(std::uint32_t kind) {
    Record made{};
    made.kind = kind;
    made.sessionId = id_;
    made.seq = ++number_;
    return made;
  }
  /// A command that holds all joints where they are, but `offset` beside it.
  Record hold(double offset = 0) {
    Record made = record(kMotorCommand);
    made.motors.motorNum = kJoints;
    for (std::uint16_t i = 0; i < kJoints; ++i) {
      made.motors.motor[i] = {static_cast<float>(joint(i).position + offset),
                              0,
                              300,
                              8,
                              0,
                              static_cast<std::uint16_t>(i / 3),
                              static_cast<std::uint16_t>(i % 3)};
    }
    return made;
  }
  RecordFate write(const Record& made) { return core_->access().take(made); }
  void holdFor(std::uint32_t ms, const Record& command) {
    for (std::uint32_t passed = 0; passed < ms; passed += 10) {
      Record again = command;
      again.seq = ++number_;
      ASSERT_EQ(write(again), RecordFate::kTaken);
      pass(10);
    }
  }
  JointState joint(std::size_t index) { return core_->access().body().joints[index]; }
  bool powered() { return core_->access().body().powered; }
  Mode mode() { return core_->access().motors().mode(); }
  RecordCounts counts() { return core_->access().motors().counts(); }

  std::uint64_t id_ = 0;
  std::uint64_t number_ = 0;
};

/// What depends on how the body answers its motors.
class LowLevelOn : public LowLevel, public testing::WithParamInterface<BodyKind> {
 protected:
  LowLevelOn() : LowLevel(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Body, LowLevelOn, testing::ValuesIn(orvane_test::bodies()),
                         orvane_test::nameOfParameter);

TEST_F(LowLevel, documentsAreCheckedAndWishesBroughtWithinTheLimits) {
  const std::string kTake = R"("takeToken":"t","workMode":"lowLevel")";
  struct Row {
    const char* method;
    std::string params;
    const char* answer;
  };
  const Row kRows[] = {
      {"takeWorkModeSession", "{}", "refused 22"},
      {"takeWorkModeSession", R"({"workMode":"lowLevel"})", "refused 22"},
      {"takeWorkModeSession", R"({"workMode":"highLevel","takeToken":"t"})", "refused 38"},
      {"takeWorkModeSession", "{" + kTake + R"(,"shmMode":false})", "refused 38"},
      {"takeWorkModeSession", "{" + kTake + R"(,"shmMode":1})", "refused 22"},
      {"takeWorkModeSession", "{" + kTake + R"(,"observedHz":-1})", "refused 22"},
      {"takeWorkModeSession", "{" + kTake + R"(,"observedHz":"500"})", "refused 22"},
      {"takeWorkModeSession", "{" + kTake + R"(,"hz":500})", "refused 22"},
      {"renewWorkModeSession", "{}", "refused 22"},
      {"renewWorkModeSession", R"({"sessionId":-1})", "refused 22"},
      {"renewWorkModeSession", R"({"sessionId":"1"})", "refused 22"},
      {"renewWorkModeSession", R"({"sessionId":18446744073709551615})", "refused 9"},
      {"setMotionPrepare", R"({"sessionId":1})", "refused 22"},
      {"setMotionPrepare", R"({"sessionId":1,"enable":1})", "refused 22"},
      {"setMotionPrepare", R"({"sessionId":1,"enable":true})", "refused 9"},
      {"releaseWorkModeSession", R"({"sessionId":1})", "refused 9"},
      {"emergencyStop", R"({"sessionId":1})", "refused 9"},
      {"setMotionMasterRole", "", "ok"},
      {"getMotorLayout", "", "ok"},
      {"startMotionAction", R"({"action":"standing"})", "status 9"}};
  for (const Row& row : kRows) {
    const auto reply = motion(row.method, row.params);
    EXPECT_EQ(told(reply), row.answer) << row.method << row.params;
    EXPECT_EQ(reply.document["params"]["sessionInvalid"].asBool(),
              row.answer == std::string("refused 9"));
  }
  EXPECT_EQ(told(ask("restoreMotionControlMode", "pilot", R"({"sessionId":1})")), "refused 9");

  const std::uint32_t kWishes[][4] = {// hertz and lease: wanted, granted
                                      {0, 1, 900, 1000},
                                      {250, 250, 1500, 1500},
                                      {5000, 1000, 0xFFFFFFFF, 600000}};
  for (const auto& wish : kWishes) {
    const Json::Value given = takeAs("t", wish[2], wish[0]).document["params"];
    EXPECT_EQ(given["observedHz"].asUInt(), wish[1]);
    EXPECT_EQ(given["leaseTimeout"].asUInt(), wish[3]);
  }
  const Json::Value usual = motion("takeWorkModeSession", "{" + kTake + "}").document["params"];
  EXPECT_EQ(usual["observedHz"].asUInt(), 500U);
  EXPECT_EQ(usual["leaseTimeout"].asUInt(), 60000U);
  EXPECT_EQ(told(takeAs("another")), "refused 16");
}

TEST_F(LowLevel, sessionAndHighLevelControlExcludeEachOther) {
  const std::string holder = take();
  auto reply = takeAs("t");
  EXPECT_EQ(told(reply), "refused 16");
  EXPECT_NE(reply.document["reason"].asString().find("held by app"), std::string::npos);
  ask("releaseMotionControl", holder);

  takeSession();
  reply = ask("takeMotionControl", "app");
  EXPECT_EQ(told(reply), "refused 16");
  EXPECT_NE(reply.document["reason"].asString().find("session of pilot"), std::string::npos);
  EXPECT_EQ(told(ask("setMotionMasterRole", "app", R"({"master":"brain"})")), "refused 16");

  // Motion given back is for whoever takes control, until the session wants the drive again.
  const auto restore = [&] {
    return told(
        ask("restoreMotionControlMode", "pilot", "{\"sessionId\":" + std::to_string(id_) + "}"));
  };
  pass(10);
  enable();
  pass(WorkModeSession::kPowerUpMs);
  ASSERT_EQ(enable(), "ready");
  EXPECT_EQ(restore(), "refused 11");
  enable(false);
  enable();
  EXPECT_EQ(restore(), "ok") << "on its way, and no longer wanted";
  const std::string again = take();
  EXPECT_EQ(enable(), "refused 16");
  EXPECT_EQ(told(session("renewWorkModeSession")), "ok");
  ask("releaseMotionControl", again);
  enable();
  EXPECT_EQ(told(ask("takeMotionControl", "app")), "refused 16");

  EXPECT_TRUE(faults_.apply("preempt").done);
  EXPECT_EQ(told(session("renewWorkModeSession")), "refused 9") << "over everybody's head";
}

TEST_F(LowLevel, driveComesOnAfterItPoweredUpAndOnlyFromASettledPosture) {
  prepare();
  EXPECT_TRUE(powered());
  EXPECT_EQ(enable(false), "ready");
  EXPECT_EQ(enable(), "not ready");
  pass(WorkModeSession::kPowerUpMs - 2);
  EXPECT_EQ(enable(), "not ready");
  EXPECT_FALSE(powered());
  pass(2);
  EXPECT_EQ(enable(), "ready");
  EXPECT_EQ(enable(), "ready");

  session("releaseWorkModeSession");
  pass(1000);
  const std::string holder = take();
  act(holder, "standing");
  pass(500);
  ask("releaseMotionControl", holder);
  takeSession();
  enable();
  pass(600);
  EXPECT_EQ(enable(), "not ready") << "half way up is no place to begin";
  EXPECT_EQ(posture(), "standingUp");
  pass(3000);
  EXPECT_EQ(enable(), "ready");
}

TEST_P(LowLevelOn, robotHoldsWhereItIsUntilAFirstCommandFromThere) {
  for (const bool stands : {false, true}) {
    SCOPED_TRACE(stands);
    stands ? standAndPrepare() : prepare();
    const double heightBefore = height();
    const auto before = core_->access().body().joints;
    pass(2000);
    EXPECT_EQ(mode(), Mode::kHolding);
    EXPECT_EQ(posture(), "lowLevel");
    EXPECT_NEAR(height(), heightBefore, 0.003);
    for (std::size_t i = 0; i < kJoints; ++i) {
      EXPECT_NEAR(joint(i).position, before[i].position, 0.02) << i;
    }
    EXPECT_EQ(write(hold(0.31)), RecordFate::kTooFar);
    EXPECT_EQ(mode(), Mode::kHolding);
    EXPECT_EQ(counts().refused, 1U);
    Record command = hold(0);
    command.motors.motor[1].position += stands ? 0.1F : 0.29F;
    const double goal = command.motors.motor[1].position;
    holdFor(500, command);
    EXPECT_NEAR(joint(1).position, goal, 0.05);
    command.motors.motor[1].position -= 0.35F;  // a later one may be further away
    EXPECT_NO_FATAL_FAILURE(holdFor(500, command));
    EXPECT_NEAR(joint(1).position, goal - 0.35, 0.05);
    session("releaseWorkModeSession");
    pass(3000);
  }
}

TEST_P(LowLevelOn, commandsThatStopComingPutTheMotorsIntoDamping) {
  standAndPrepare();
  pass(1000);
  ASSERT_EQ(mode(), Mode::kHolding) << "before the first one nothing is missed";
  const double before = height();
  holdFor(500, hold());
  EXPECT_NEAR(height(), before, 0.01);
  ASSERT_EQ(write(hold()), RecordFate::kTaken);
  pass(MotorControl::kSilenceMs - 2);
  static_cast<void>(write(record(kRequireObserved)));
  EXPECT_EQ(mode(), Mode::kFollowing);
  const Record last = hold();
  pass(2);
  EXPECT_EQ(mode(), Mode::kDamping);
  pass(3000);
  EXPECT_NEAR(height(), kLyingHeight, 0.03) << "the legs give way";
  EXPECT_TRUE(powered());
  Record late = last;
  late.seq = ++number_;
  EXPECT_EQ(write(late), RecordFate::kTooFar) << "it begins anew from where it is";
  EXPECT_EQ(write(hold()), RecordFate::kTaken);
  EXPECT_EQ(mode(), Mode::kFollowing);
}

TEST_P(LowLevelOn, driveIsOffWhenTheSessionEndsAndTheRobotLiesDown) {
  struct Row {
    const char* name;
    std::function<void()> end;
    const char* renewal;
    const char* then;
  };
  const Row kRows[] = {
      {"disable", [&] { enable(false); }, "ok", "lowLevel"},
      {"release", [&] { session("releaseWorkModeSession"); }, "refused 9", "damped"},
      {"endsession", [&] { faults_.apply("endsession"); }, "refused 9", "damped"},
      {"taken anew", [&] { takeAs("t"); }, "refused 9", "lowLevel"},
      {"emergency stop", [&] { session("emergencyStop"); }, "refused 9", "emergencyStop"}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    standAndPrepare();
    holdFor(100, hold());
    ASSERT_TRUE(powered());
    row.end();
    pass(2);
    EXPECT_FALSE(powered());
    EXPECT_NE(write(hold()), RecordFate::kTaken);
    EXPECT_EQ(told(session("renewWorkModeSession")), row.renewal);
    pass(3000);
    EXPECT_EQ(posture(), row.then);
    EXPECT_FALSE(powered());
    EXPECT_NEAR(height(), kLyingHeight, 0.03);
    faults_.apply("endsession");
    pass(1000);
    EXPECT_EQ(told(takeAs("t")), row.then == std::string("emergencyStop") ? "refused 11" : "ok");
    faults_.apply("endsession");
    if (row.then != std::string("emergencyStop")) continue;
    const std::string holder = take();
    EXPECT_EQ(told(act(holder, "standing")), "refused 11");
    EXPECT_EQ(told(act(holder, "recoveryStand")), "ok");
    pass(5000);
    EXPECT_EQ(posture(), "standing");
    ask("releaseMotionControl", holder);
    pass(100);
    takeSession(1000);
    EXPECT_EQ(told(takeAs("t", 1000)), "ok");
  }
}

TEST_F(LowLevel, leaseThatRunsOutSwitchesTheDriveOffAtThatMoment) {
  takeSession(2000);
  enable();
  pass(300);
  ASSERT_EQ(enable(), "ready");
  pass(1600);
  ASSERT_EQ(told(session("renewWorkModeSession")), "ok");
  pass(1998);
  EXPECT_TRUE(powered());
  pass(2);
  EXPECT_FALSE(powered());
  const auto late = session("renewWorkModeSession");
  EXPECT_EQ(told(late), "refused 9");
  EXPECT_TRUE(late.document["params"]["sessionInvalid"].asBool());
  EXPECT_EQ(told(ask("takeMotionControl", "app")), "ok");
}

TEST_F(LowLevel, recordsThatMustNotReachTheMotorsAreRefusedAndCounted) {
  EXPECT_EQ(write(hold()), RecordFate::kOtherSession) << "there is none";
  takeSession();
  EXPECT_EQ(write(hold()), RecordFate::kDriveOff);
  EXPECT_EQ(write(record(kRequireObserved)), RecordFate::kTaken);
  EXPECT_EQ(write(record(kMotorCommandWithTrailer)), RecordFate::kTaken) << "a stop may be late";
  enable();
  pass(300);
  ASSERT_EQ(enable(), "ready");
  struct Row {
    RecordFate fate;
    std::function<void(Record&)> spoil;
  };
  const Row kRows[] = {
      {RecordFate::kOtherSession, [](Record& r) { ++r.sessionId; }},
      {RecordFate::kOtherSession, [](Record& r) { r.sessionId = 0; }},
      {RecordFate::kOldNumber, [](Record& r) { --r.seq; }},
      {RecordFate::kUnknownKind, [](Record& r) { r.kind = 4; }},
      {RecordFate::kBadMotorCount, [](Record& r) { r.motors.motorNum = 0; }},
      {RecordFate::kBadMotorCount, [](Record& r) { r.motors.motorNum = 17; }},
      {RecordFate::kBadMotorCount, [](Record& r) { r.kind = kMaxTorque, r.motors.motorNum = 17; }},
      {RecordFate::kUnknownMotor, [](Record& r) { r.motors.motor[11].limbsNo = 4; }},
      {RecordFate::kUnknownMotor, [](Record& r) { r.motors.motor[11].jointNo = 3; }},
      {RecordFate::kMotorTwice, [](Record& r) { r.motors.motor[11] = r.motors.motor[3]; }},
      {RecordFate::kBadValue, [](Record& r) { r.motors.motor[11].position = kNan; }},
      {RecordFate::kBadValue, [](Record& r) { r.motors.motor[0].torque = kInfinity; }},
      {RecordFate::kBadValue, [](Record& r) { r.motors.motor[3].velocity = kNan; }},
      {RecordFate::kBadValue, [](Record& r) { r.motors.motor[3].kpGain = -1; }},
      {RecordFate::kBadValue, [](Record& r) { r.motors.motor[3].kdGain = kNan; }},
      {RecordFate::kBadValue,
       [](Record& r) { r.kind = kMaxTorque, r.motors.motor[0].torque = -1; }},
      {RecordFate::kTooFar, [](Record& r) { r.motors.motor[11].position = kHuge; }}};
  const std::uint64_t before = counts().refused;
  std::uint64_t refused = before;
  for (const Row& row : kRows) {
    static_cast<void>(write(record(kRequireObserved)));
    Record bad = hold();
    row.spoil(bad);
    EXPECT_EQ(write(bad), row.fate) << textOf(row.fate);
    EXPECT_EQ(counts().refused, ++refused);
    EXPECT_EQ(counts().lastRefusal, row.fate);
    EXPECT_EQ(mode(), Mode::kHolding);
    pass(2);
  }
  EXPECT_EQ(counts().lost, 3U) << "numbers that were another session's, or not the record's own";
  number_ += 10;
  EXPECT_EQ(write(hold()), RecordFate::kTaken);
  EXPECT_EQ(counts().lost, 13U);
  EXPECT_EQ(counts().commands, 1U);
  const Json::Value shown = state()["lowLevel"];
  EXPECT_EQ(shown["refused"].asUInt64(), refused);
  EXPECT_EQ(shown["motors"].asString(), "following");

  EXPECT_EQ(write(record(kMotorCommandWithTrailer)), RecordFate::kTaken);
  EXPECT_EQ(mode(), Mode::kDamping) << "a stop";
}

TEST_P(LowLevelOn, maximumTorqueHoldsUntilTheSessionEnds) {
  standAndPrepare();
  Record limits = hold();
  limits.kind = kMaxTorque;
  for (auto& motor : limits.motors.motor) motor.torque = 2;
  EXPECT_EQ(write(limits), RecordFate::kTaken);
  pass(20);
  EXPECT_EQ(joint(2).maxTorque, 2);
  Record push = hold(0.2);
  holdFor(200, push);
  for (std::size_t i = 0; i < kJoints; ++i) EXPECT_LE(std::abs(joint(i).torque), 2) << i;
  EXPECT_LT(height(), 0.28) << "too weak to stand";
  session("releaseWorkModeSession");
  pass(3000);
  prepare();
  EXPECT_EQ(joint(2).maxTorque, kJointLimits[2].maxTorque);
}

}  // namespace
}  // namespace orvane::robot
