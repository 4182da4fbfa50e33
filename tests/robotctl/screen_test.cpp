// watch and drive in a real terminal, with real virtual robots.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <cmath>
#include <csignal>
#include <memory>
#include <sstream>
#include <string>

#include "sdk_robot.h"
#include "sdk_support.h"
#include "terminal_window.h"

namespace sdk_test {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kDog = std::string(ROBOTCTL) + " --interface lo --robot dog ";

bool gone(int pid) {
  return waitUntil([&] { return kill(pid, 0) != 0; }, kLimitMs);
}

// ---------------------------------------------------------------------------------------------
// watch

TEST(Watch, FillsTheScreenFollowsItsSizeAndPutsItBackAfterQ) {
  const LocalRobot robot("dog");
  const TerminalWindow window(80, 24, kDog + "watch");
  ASSERT_TRUE(window.matches("motion [1-9]\\d* Hz, sensor [1-9]")) << window.screen();
  EXPECT_TRUE(window.shows("nobody has it"));
  for (const char* piece : {"lying", "Battery", "roll", "x   +0.00", "FL_hip", "RR_calf", "path"}) {
    EXPECT_THAT(window.screen(), HasSubstr(piece));
  }
  robot.stir();
  EXPECT_TRUE(window.shows("posture recovering  previous lying")) << window.screen();
  ASSERT_TRUE(robot.suffers("preempt joe"));
  EXPECT_TRUE(window.shows("joe, for ")) << window.screen();
  EXPECT_TRUE(window.shows("control joe has it now")) << window.screen();

  const auto widest = [&] {
    std::size_t longest = 0;
    std::istringstream lines(window.screen());
    for (std::string line; std::getline(lines, line);) {
      if (line.find("path, ") != std::string::npos) longest = line.find("path, ");
    }
    return longest;
  };
  EXPECT_LT(widest(), 80U);
  window.resize(132, 43);
  EXPECT_TRUE(waitUntil([&] { return widest() > 70; }, kLimitMs)) << window.screen();
  window.resize(50, 10);
  EXPECT_TRUE(waitUntil([&] { return widest() == 0; }, kLimitMs)) << window.screen();
  window.resize(80, 24);
  EXPECT_TRUE(window.shows("path, ")) << window.screen();

  window.type("q");
  EXPECT_TRUE(window.shows("status 0"));
  EXPECT_TRUE(window.shows("\nicanon")) << window.screen();
  EXPECT_THAT(window.screen(), HasSubstr("before"));
  EXPECT_THAT(window.screen(), Not(HasSubstr("Battery")));
}

TEST(Watch, PutsTheTerminalBackWhenItIsEndedOrCrashes) {
  const LocalRobot robot("dog");
  struct Case {
    int signal;  // 0: Ctrl-C
    const char* status;
  };
  for (const Case one : {Case{0, "status 130"},
                         {SIGTERM, "status 143"},
                         {SIGSEGV, "status 139"},
                         {SIGABRT, "status 134"}}) {
    const TerminalWindow window(80, 24, kDog + "watch");
    ASSERT_TRUE(window.shows("Battery")) << window.screen();
    if (one.signal == 0) {
      window.type("C-c");
    } else {
      ASSERT_EQ(kill(window.commandPid(), one.signal), 0);
    }
    EXPECT_TRUE(window.shows(one.status)) << window.screen();
    EXPECT_TRUE(window.shows("\nicanon")) << window.screen();
    EXPECT_THAT(window.screen(), Not(HasSubstr("Battery")));
  }
}

TEST(Watch, SaysThatTheRobotIsGoneAndShowsItAgainWhenItIsBack) {
  auto robot = std::make_unique<RobotProcess>("dog");
  const TerminalWindow window(80, 24, kDog + "watch");
  ASSERT_TRUE(window.shows(" Hz")) << window.screen();
  robot->signal(SIGKILL);
  EXPECT_TRUE(window.shows("doesn't answer; last state")) << window.screen();
  robot.reset();
  robot = std::make_unique<RobotProcess>("dog");
  EXPECT_TRUE(window.shows("the robot answers again")) << window.screen();
  EXPECT_TRUE(window.matches("sensor [1-9]")) << window.screen();
  EXPECT_THAT(window.screen(), Not(HasSubstr("last state")));
}

TEST(Watch, WritesLinesWhereThereIsNoTerminal) {
  const LocalRobot robot("dog");
  Process lines({"/bin/sh", "-c", kDog + "watch --count 1"});
  EXPECT_EQ(lines.finish(kLimitMs), 0);
  EXPECT_THAT(lines.output(), HasSubstr("lying  control: nobody"));
  EXPECT_THAT(lines.output(), HasSubstr(" Hz"));
  EXPECT_THAT(lines.output(), Not(HasSubstr(" 0 Hz")));
  EXPECT_THAT(lines.output(), Not(HasSubstr("\033")));

  Process documents({"/bin/sh", "-c", kDog + "--json watch --rate 10 --count 12"});
  EXPECT_EQ(documents.finish(kLimitMs), 0);
  std::istringstream stream(documents.output());
  Json::Value document;
  int count = 0;
  for (std::string line; std::getline(stream, line); ++count) {
    std::istringstream text(line);
    ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &document, nullptr)) << line;
  }
  EXPECT_EQ(count, 12);
  EXPECT_EQ(document["joints"].size(), 12U);
  EXPECT_EQ(document["joints"][0]["name"].asString(), "FL_hip");
  EXPECT_TRUE(document["answers"].asBool());
  EXPECT_GT(document["ratesHz"]["motion"].asDouble(), 0);

  Process closed({"/bin/sh", "-c",
                  "(" + kDog + "watch --rate 20; echo status $? >&2) | head -n 1 >/dev/null"});
  EXPECT_EQ(closed.finish(kLimitMs), 0);
  EXPECT_EQ(closed.output(), "status 141\n");
}

TEST(Watch, EndsItsLinesInFailureWhenTheRobotIsSilent) {
  const RobotProcess robot("dog");
  Process lines({"/bin/sh", "-c", kDog + "watch --lines --count 4"});
  ASSERT_TRUE(lines.says(" Hz", kLimitMs)) << lines.output();
  robot.signal(SIGKILL);
  EXPECT_EQ(lines.finish(kLimitMs), 5);
  EXPECT_THAT(lines.output(), HasSubstr("robotctl: the robot has fallen silent"));
}

// ---------------------------------------------------------------------------------------------
// drive

/// Holds a key as a keyboard does, until `until`; false: it didn't come to that.
template <class Condition>
bool hold(const TerminalWindow& window, const std::string& key, Condition until) {
  return waitUntil(
      [&] {
        window.type(key);
        return until();
      },
      kLimitMs);
}

/// A robot that stands, driven in a window.
class Drive : public testing::Test {
 protected:
  Drive() : robot_("dog"), window_(80, 24, kDog + "drive") {
    // The library waits 3 s before it takes control.
    ready_ = window_.shows("in control") && (window_.type("u"), robot_.reaches(Posture::kStanding));
  }

  bool walks(const std::string& key = "w") {
    return hold(window_, key, [&] { return robot_.status().posture == Posture::kWalking; });
  }
  bool standsFree() {
    return robot_.reaches(Posture::kStanding) &&
           waitUntil([&] { return robot_.status().controller.empty(); }, kLimitMs);
  }

  LocalRobot robot_;
  TerminalWindow window_;
  bool ready_ = false;
};

TEST_F(Drive, WalksWhileAKeyIsHeldAndStopsWithoutIt) {
  ASSERT_TRUE(ready_) << window_.screen();
  ASSERT_TRUE(walks()) << window_.screen();
  EXPECT_TRUE(hold(window_, "w", [&] { return robot_.status().position[0] > 0.3; }));
  const std::uint64_t typedMs = nowMs();
  window_.type("w");
  const std::uint64_t letGoMs = nowMs();
  ASSERT_EQ(robot_.status().posture, Posture::kWalking);
  ASSERT_TRUE(waitUntil([&] { return robot_.status().posture != Posture::kWalking; }));
  const std::uint64_t brakingMs = nowMs();
  EXPECT_GE(brakingMs - typedMs, 590U);
  EXPECT_LT(brakingMs - letGoMs, 1500U);  // a second later than drive the robot stops by itself
  EXPECT_TRUE(robot_.reaches(Posture::kStanding)) << window_.screen();
  EXPECT_TRUE(window_.shows("Forward    +0.00")) << window_.screen();

  window_.type("l");
  EXPECT_TRUE(robot_.reaches(Posture::kLying));
  window_.type("w");
  EXPECT_TRUE(window_.shows("refused velocityMove: the robot is lying")) << window_.screen();
  EXPECT_TRUE(window_.matches(R"(\[error 9 \(.*errno 11 )")) << window_.screen();
  window_.type("Escape");
  EXPECT_TRUE(robot_.reaches(Posture::kEmergencyStop)) << window_.screen();
  window_.type("r");
  EXPECT_TRUE(robot_.reaches(Posture::kStanding)) << window_.screen();
  window_.type("C-d");
  EXPECT_TRUE(window_.shows("status 0")) << window_.screen();
  EXPECT_TRUE(standsFree());
}

class TerminatedDrive : public Drive, public testing::WithParamInterface<int> {};

TEST_P(TerminatedDrive, StopsTheRobot) {
  ASSERT_TRUE(ready_ && walks()) << window_.screen();
  if (GetParam() == SIGINT) {
    window_.type("C-c");
  } else {
    ASSERT_EQ(kill(window_.commandPid(), GetParam()), 0);
  }
  EXPECT_TRUE(standsFree());
  EXPECT_TRUE(window_.shows("status " + std::to_string(128 + GetParam()))) << window_.screen();
  EXPECT_TRUE(window_.shows("\nicanon"));
}

INSTANTIATE_TEST_SUITE_P(Drive, TerminatedDrive, testing::Values(SIGINT, SIGTERM));

TEST_F(Drive, SendsNothingAfterAnotherTookControlUntilItIsBack) {
  ASSERT_TRUE(ready_ && walks()) << window_.screen();
  ASSERT_TRUE(robot_.suffers("preempt joe"));
  ASSERT_TRUE(window_.shows("control lost: revoked or taken by another (error 5)"));
  EXPECT_TRUE(window_.shows("joe, for")) << window_.screen();
  ASSERT_TRUE(robot_.reaches(Posture::kStanding));
  for (int i = 0; i < 10; ++i) window_.type("w");
  ASSERT_TRUE(robot_.suffers("restore"));
  ASSERT_TRUE(window_.shows("in control")) << window_.screen();
  EXPECT_EQ(robot_.status().posture, Posture::kStanding);
  EXPECT_THAT(window_.screen(), Not(HasSubstr("velocityMove")));
  EXPECT_TRUE(walks());
  ASSERT_TRUE(robot_.suffers("revoke"));
  ASSERT_TRUE(window_.shows("control lost"));
  window_.type("C-d");
  EXPECT_TRUE(window_.shows("status 4")) << window_.screen();
  EXPECT_TRUE(window_.shows("control lost: revoked")) << window_.screen();
}

/// The parameter stands before the program; with the second one it isn't told of the hang-up.
class KilledTerminal : public testing::TestWithParam<const char*> {};

TEST_P(KilledTerminal, StopsTheRobotWithinASecondAsAnotherSees) {
  const RobotProcess robot("dog");
  const Sdk sdk;
  const Client observer = connectTo("dog");
  ASSERT_TRUE(observer.handle);
  TerminalWindow window(80, 24, GetParam() + kDog + "drive");
  ASSERT_TRUE(window.shows("in control")) << window.screen();
  window.type("u");
  const auto stands = [&] { return stateText(observer, "posture") == "standing"; };
  const auto speed = [&] { return stateNumber(observer, "velocity.lineVelocityX"); };
  ASSERT_TRUE(waitUntil(stands, kLimitMs)) << window.screen();
  ASSERT_TRUE(hold(window, "w", [&] { return speed() > 0.1; })) << window.screen();

  const int pid = window.commandPid();
  const std::uint64_t killedMs = nowMs();
  window.kill();
  ASSERT_TRUE(waitUntil(stands, kLimitMs));
  const std::uint64_t stoppedMs = nowMs() - killedMs;
  EXPECT_LE(stoppedMs, 1000U);
  EXPECT_LT(std::abs(speed()), 0.05);
  RecordProperty("stoppedMs", std::to_string(stoppedMs));
  EXPECT_TRUE(waitUntil([&] { return stateText(observer, "control.controller").empty(); }));
  EXPECT_TRUE(gone(pid));
}

INSTANTIATE_TEST_SUITE_P(Drive, KilledTerminal,
                         testing::Values("", "/usr/bin/env --ignore-signal=HUP "));

TEST(DriveElsewhere, SaysThatTheRobotFellSilentAndDrivesItsSuccessor) {
  auto robot = std::make_unique<RobotProcess>("dog");
  const TerminalWindow window(80, 24, kDog + "drive");
  ASSERT_TRUE(window.shows("in control")) << window.screen();
  robot->signal(SIGKILL);
  EXPECT_TRUE(window.shows("the robot has fallen silent; nothing is sent")) << window.screen();
  robot.reset();
  robot = std::make_unique<RobotProcess>("dog");
  ASSERT_TRUE(window.shows("t takes it again")) << window.screen();
  window.type("t");
  ASSERT_TRUE(window.shows("in control")) << window.screen();
  window.type("u");
  EXPECT_TRUE(robot->says("standing,", kLimitMs)) << window.screen();
  EXPECT_TRUE(hold(window, "w", [&] {
    return robot->output().find("walking") != std::string::npos;
  })) << window.screen();
  EXPECT_TRUE(robot->says("standing, control robotctl", kLimitMs));
}

TEST(DriveElsewhere, RefusesWithoutTerminalAndWithoutControl) {
  Process blind({"/bin/sh", "-c", kDog + "drive"});
  EXPECT_EQ(blind.finish(kLimitMs), 2);
  EXPECT_THAT(blind.output(), HasSubstr("needs a terminal"));

  const LocalRobot robot("dog");
  ASSERT_TRUE(robot.suffers("preempt joe"));
  const TerminalWindow window(80, 24, kDog + "--control-timeout 0.1 drive");
  EXPECT_TRUE(window.shows("status 4")) << window.screen();
  EXPECT_THAT(window.screen(), HasSubstr("joe"));
}

}  // namespace
}  // namespace sdk_test
