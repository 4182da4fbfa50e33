// Pictures, keys and the dead man, without a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "terminal/DeadMan.h"
#include "terminal/DriveView.h"
#include "terminal/Keys.h"
#include "terminal/Screen.h"
#include "terminal/WatchLines.h"
#include "terminal/WatchView.h"

namespace robotctl {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string joined(const Canvas& canvas) {
  std::string text;
  for (const std::string& line : canvas.lines()) text += line + '\n';
  return text;
}

RobotModel walkingRobot() {
  RobotModel model;
  model.name = "robot dog";
  model.interface = "lo";
  model.clock = "12:34:56";
  model.nowMs = 100000;
  model.stateMs = model.motionMs = model.sensorMs = 99900;
  model.answers = true;
  model.motionHz = 500;
  model.sensorHz = 50;
  model.state["posture"] = "walking";
  model.state["timeMs"] = 60000;
  model.state["control"]["controlled"] = true;
  model.state["control"]["holder"] = "walk_square";
  model.state["control"]["sinceMs"] = 19000;
  model.state["control"]["remainingMs"] = 42000;
  model.state["velocity"]["lineVelocityX"] = 0.25;
  model.state["simulation"]["commands"] = 5659;
  model.state["simulation"]["refused"] = 1495;
  model.state["simulation"]["lastRefusal"] = "another client commands the motors";
  orvane::RobotSdk::ObservedMotionRecord motion{};
  motion.motorNum = 12;
  motion.imu.euler = {0, 0.1F, -0.2F, 3.1F};
  motion.imu.gyro = {0, 0.01F, 0.02F, -1.25F};
  motion.power = {87, 99, 31, -2.5F, 25.2F};
  for (std::size_t i = 0; i < 12; ++i) {
    model.jointNames.push_back("joint" + std::to_string(i));
    motion.motor[i].enable = motion.motor[i].online = 1;
    motion.motor[i].position = 0.1F * static_cast<float>(i);
    motion.motor[i].torque = -12.5F;
    motion.motor[i].temp = 41;
  }
  model.motion = motion;
  orvane::RobotSdk::ObservedSensorRecord sensor{};
  for (int i = 0; i <= 100; ++i) {
    const float along = 0.04F * static_cast<float>(i);
    sensor.odom = {1, {}, {along, std::sin(along), 0.3F}, {}, 0.7F, 0.1F, 1};
    model.path.add(sensor.odom);
  }
  model.sensor = sensor;
  for (std::uint64_t i = 1; i <= 30; ++i) {
    model.happenings.push_back(
        {i, 1, "12:34:00", "host.event", "event " + std::to_string(i), false});
  }
  return model;
}

// ------------------------------------------------------------------------------------------
// pictures

TEST(WatchPicture, HasEverythingAt80x24AndMoreWhereThereIsRoom) {
  const RobotModel model = walkingRobot();
  const std::string small = joined(drawWatch(model, {80, 24}));
  for (const char* piece : {"robot dog on lo",
                            "12:34:56",
                            "motion 500 Hz, sensor 50 Hz",
                            "walk_square, for 41 s, 42 s left",
                            "walking",
                            "forward +0.25",
                            "87 %",
                            "25.2 V",
                            "roll   +5.7°",
                            "pitch  -11.5°",
                            "yaw +177.6°",
                            "-1.25 rad/s",
                            "x   +4.00",
                            "joint0 ",
                            "joint11 ",
                            "+1.10",
                            "-12.5",
                            "41 ",
                            "path, ",
                            "event 30",
                            "event 27"}) {
    EXPECT_THAT(small, HasSubstr(piece));
  }
  EXPECT_THAT(small, Not(HasSubstr("…")));  // nothing had to be shortened

  const Canvas large = drawWatch(model, {140, 50});
  EXPECT_THAT(joined(large), HasSubstr("event 5"));
  const auto dots = [](const Canvas& canvas) {
    std::size_t count = 0;
    for (int row = 0; row < canvas.size().rows; ++row) {
      for (int column = 0; column < canvas.size().columns; ++column) {
        const char32_t glyph = canvas.at(column, row).glyph;
        count += glyph > 0x2800 && glyph <= 0x28ff ? 1 : 0;
      }
    }
    return count;
  };
  EXPECT_GT(dots(drawWatch(model, {80, 24})), 8U);
  EXPECT_GT(dots(large), 2 * dots(drawWatch(model, {80, 24})));
}

TEST(WatchPicture, SaysHowLongARobotHasBeenSilentAndGreysWhatIsOld) {
  RobotModel model = walkingRobot();
  model.nowMs += 4000;
  const Canvas canvas = drawWatch(model, {80, 24});
  EXPECT_THAT(joined(canvas),
              HasSubstr("doesn't answer; last state 4 s ago, motion 4 s, sensor 4 s"));
  EXPECT_EQ(canvas.at(0, 1).style, Style::kLabel);
  EXPECT_EQ(canvas.at(12, 1).style, Style::kBad);
  EXPECT_EQ(canvas.at(12, 3).style, Style::kFaint);
  EXPECT_THAT(watchLine(model), HasSubstr("doesn't answer"));
  EXPECT_FALSE(watchDocument(model, 0)["answers"].asBool());
}

TEST(WatchLines, HoldFiguresOfAnyUsualSize) {
  RobotModel model = walkingRobot();
  model.sensor->odom.position[0] = 12.5F;
  model.sensor->odom.position[1] = -123.5F;
  EXPECT_THAT(watchLine(model), HasSubstr("x +12.50 y -123.50 m yaw +0.70 rad  battery 87 %  motor "
                                          "commands: 5659 carried out, 1495 refused: another "));
  model.answers = false;
  model.sensorMs = 0;
  EXPECT_THAT(watchLine(model), EndsWith("sensor never"));
}

TEST(WatchPicture, EndsNeitherAtNonsenseNorAtAnySize) {
  RobotModel nonsense = walkingRobot();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  nonsense.motion->motorNum = 2000000000;
  nonsense.motion->power = {nan, inf, -inf, 3e38F, nan};
  nonsense.motion->imu.euler = {7, nan, inf, -3e38F};
  for (auto& motor : nonsense.motion->motor) {
    motor.position = nan;
    motor.velocity = -inf;
    motor.torque = 3e38F;
    motor.maxTorque = nan;
    motor.temp = -inf;
    motor.error = 9;
  }
  nonsense.sensor->odom.position[0] = inf;
  nonsense.sensor->odom.yaw = nan;
  nonsense.path.add(nonsense.sensor->odom);
  nonsense.state = Json::Value();
  nonsense.state["posture"]["a"] = 1;
  nonsense.state["velocity"] = Json::arrayValue;
  nonsense.state["control"] = 17;
  DriveStatus drive;
  drive.velocity = {nan, inf, 1};
  for (const RobotModel& model : {RobotModel(), walkingRobot(), nonsense}) {
    for (const Size size : {Size{80, 24}, {1, 1}, {7, 3}, {79, 200}, {1000, 1000}, {0, -5}}) {
      const Canvas watched = drawWatch(model, size);
      EXPECT_GE(watched.lines().size(), 1U);
      EXPECT_EQ(drawDrive(model, drive, size).lines().size(), watched.lines().size());
    }
    EXPECT_FALSE(watchLine(model).empty());
    EXPECT_TRUE(watchDocument(model, 0).isObject());
  }
  EXPECT_THAT(joined(drawWatch(nonsense, {80, 30})), HasSubstr("motor 15"));
}

TEST(WatchPicture, LetsNothingFromTheNetworkReachTheTerminal) {
  RobotModel model = walkingRobot();
  const std::string hostile =
      "\033]0;owned\007\x9b"
      "31m\xc2\x9b\xf0\x9f\x90\x95\xe6\xbc\xa2";
  model.name = hostile;
  model.state["posture"] = hostile;
  model.state["control"]["holder"] = hostile;
  model.jointNames[0] = hostile;
  model.happenings.push_back({99, 1, "now", hostile, hostile, true});
  Screen screen({.unicode = true, .colours = false});
  std::string bytes = screen.update(drawWatch(model, {80, 24}));
  EXPECT_EQ(bytes.find('\007'), std::string::npos);
  EXPECT_EQ(bytes.find("\033]"), std::string::npos);
  EXPECT_EQ(bytes.find("\xc2\x9b"), std::string::npos);
  EXPECT_EQ(bytes.find("\xe6\xbc\xa2"), std::string::npos);  // two columns wide
}

TEST(DrivePicture, ShowsWhatIsSentAndWhatWasLost) {
  DriveStatus drive;
  drive.velocity = {0.4F, 0, -0.6F};
  drive.speed = 7;
  std::string text = joined(drawDrive(walkingRobot(), drive, {80, 24}));
  for (const char* piece : {"+0.40", "-0.60", "70 %", "emergency stop", "in control", "event 30"}) {
    EXPECT_THAT(text, HasSubstr(piece));
  }
  RobotModel stopped = walkingRobot();
  stopped.state["posture"] = "emergencyStop";
  EXPECT_THAT(joined(drawDrive(stopped, drive, {80, 24})), HasSubstr("latched; r recovers"));
  drive.hold = Hold::kLost;
  drive.lost = "control lost: revoked or taken by another (error 5)";
  text = joined(drawDrive(walkingRobot(), drive, {80, 24}));
  EXPECT_THAT(text, HasSubstr(drive.lost + "; t takes it again"));
}

TEST(Path, StaysBoundedAndBreaksWhereTheOdometryJumps) {
  Path path;
  orvane::RobotSdk::ObservedOdometry odometry{};
  odometry.valid = 1;
  for (int i = 0; i < 200000; ++i) {
    odometry.position[0] = 0.01F * static_cast<float>(i);
    path.add(odometry);
  }
  EXPECT_LT(path.points().size(), Path::kMostPoints);
  EXPECT_EQ(path.points().front().x, 0);
  EXPECT_GT(path.points().back().x, 1990);
  odometry.position[0] = 0;
  path.add(odometry);
  EXPECT_TRUE(path.points().back().begins);
  odometry.epoch = 1;
  path.add(odometry);
  EXPECT_EQ(path.points().size(), 1U);
}

/// As much of a terminal as Screen uses.
std::vector<std::string> shown(const std::string& bytes, Size size, std::vector<std::string> rows) {
  std::size_t row = 0, column = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] != '\033') {
      rows[row][column++] = bytes[i];
      continue;
    }
    const std::size_t end = bytes.find_first_of("HJm", i);
    if (bytes[end] == 'J') {
      rows.assign(static_cast<std::size_t>(size.rows),
                  std::string(static_cast<std::size_t>(size.columns), ' '));
    } else if (bytes[end] == 'H') {
      row = std::stoul(bytes.substr(i + 2)) - 1;
      column = std::stoul(bytes.substr(bytes.find(';', i) + 1)) - 1;
    }
    i = end;
  }
  return rows;
}

TEST(Screen, SendsOnlyWhatMakesTheNextPictureOfTheLast) {
  std::mt19937 random(7);
  const Size size{30, 8};
  Screen screen({.unicode = false, .colours = true});
  std::vector<std::string> rows;
  Canvas canvas(size);
  for (int picture = 0; picture < 300; ++picture) {
    const unsigned changes = random() % 20;
    for (unsigned i = 0; i < changes; ++i) {
      canvas.put(static_cast<int>(random() % 30), static_cast<int>(random() % 8),
                 U'a' + random() % 26, static_cast<Style>(random() % 8));
    }
    rows = shown(screen.update(canvas), size, std::move(rows));
    for (std::size_t row = 0; row < rows.size(); ++row) {
      std::string line = rows[row];
      line.erase(line.find_last_not_of(' ') + 1);
      ASSERT_EQ(line, canvas.lines()[row]) << picture;
    }
  }
  EXPECT_EQ(screen.update(canvas), "");
  canvas.put(3, 3, U'#', Style::kPlain);
  EXPECT_LT(screen.update(canvas).size(), 20U);
  screen.forget();
  EXPECT_THAT(screen.update(canvas), HasSubstr("\033[2J"));
}

TEST(Screen, DrawsWithAsciiWhereThereIsNothingElse) {
  Screen screen({.unicode = false, .colours = false});
  for (const char byte : screen.update(drawWatch(walkingRobot(), {80, 24}))) {
    ASSERT_TRUE((byte >= ' ' && byte <= '~') || byte == '\033') << static_cast<int>(byte);
  }
}

// ------------------------------------------------------------------------------------------
// keys

TEST(Keys, AreReadFromWhatTerminalsSend) {
  struct Case {
    std::string bytes;
    std::vector<Key> keys;
  };
  const std::vector<Case> cases{
      {"wa", {U'w', U'a'}},
      {"\033[A\033[B\033OC\033OD", {kKeyUp, kKeyDown, kKeyRight, kKeyLeft}},
      {"\033[1;5A", {kKeyUp}},
      {"\033[15~x", {kKeyOther, U'x'}},
      {"\033w", {kKeyEscape, U'w'}},  // Alt-w, or Escape and w: it must stop
      {"\033\033x", {kKeyEscape, kKeyEscape, U'x'}},
      {"\033\033[A", {kKeyEscape, kKeyUp}},
      {"\033[\x01", {kKeyEscape, U'[', 1}},
      {"\xc3\xa4w", {U'ä', U'w'}},
      {"\x80w", {U'?', U'w'}},
      {"\x04\x0c", {kKeyEndOfInput, kKeyRedraw}},
  };
  for (const Case& one : cases) {
    KeyDecoder whole;
    EXPECT_EQ(whole.feed(one.bytes, 1000), one.keys) << one.bytes;
    KeyDecoder pieces;  // a slow line brings one byte at a time
    std::vector<Key> keys;
    for (const char byte : one.bytes) {
      for (const Key key : pieces.feed(std::string(1, byte), 1000)) keys.push_back(key);
    }
    EXPECT_EQ(keys, one.keys) << one.bytes;
  }
}

TEST(Keys, TellAnEscapeByTheSilenceBehindIt) {
  KeyDecoder decoder;
  EXPECT_THAT(decoder.feed("\033", 1000), IsEmpty());
  EXPECT_EQ(decoder.deadlineMs(), 1050U);
  EXPECT_THAT(decoder.expire(1049), IsEmpty());
  EXPECT_THAT(decoder.expire(1050), ElementsAre(kKeyEscape));
  EXPECT_EQ(decoder.deadlineMs(), 0U);
  EXPECT_THAT(decoder.feed("\033[", 2000), IsEmpty());
  EXPECT_THAT(decoder.feed("A", 2100), ElementsAre(kKeyEscape, U'[', U'A'));
}

// ------------------------------------------------------------------------------------------
// dead man

TEST(DeadMan, WalksFromThePressOverTheRepeatsTo600MsBehindTheLast) {
  DeadMan deadMan(SpeedLimits{});
  const Velocity still;
  EXPECT_EQ(deadMan.wanted(1000), still);
  ASSERT_TRUE(deadMan.press(U'w', 1000));
  // The first repeat comes late: no gap before it.
  for (std::uint64_t now = 1000; now < 1500; now += 10) {
    EXPECT_FLOAT_EQ(deadMan.wanted(now).forward, 0.2F);  // four tenths of 0.5
  }
  for (std::uint64_t now = 1500; now <= 3000; now += 30) ASSERT_TRUE(deadMan.press(U'w', now));
  EXPECT_EQ(deadMan.deadlineMs(3010), 3600U);
  EXPECT_FLOAT_EQ(deadMan.wanted(3599).forward, 0.2F);
  EXPECT_EQ(deadMan.wanted(3600), still);
  EXPECT_EQ(deadMan.deadlineMs(3600), 0U);
}

TEST(DeadMan, HasATimeForEachDirectionAndASpeedForAll) {
  DeadMan deadMan(SpeedLimits{{-0.8F, 1.0F}, {-0.4F, 0.4F}, {-1.5F, 1.5F}});
  for (int i = 0; i < 20; ++i) deadMan.faster();
  ASSERT_TRUE(deadMan.press(kKeyUp, 1000));
  ASSERT_TRUE(deadMan.press(U'd', 1400));
  EXPECT_EQ(deadMan.wanted(1500), (Velocity{1.0F, 0, -1.5F}));
  EXPECT_EQ(deadMan.wanted(1600), (Velocity{0, 0, -1.5F}));
  ASSERT_TRUE(deadMan.press(U's', 1600));
  ASSERT_TRUE(deadMan.press(U'e', 1600));
  EXPECT_EQ(deadMan.wanted(1700), (Velocity{-0.8F, -0.4F, -1.5F}));
  for (int i = 0; i < 20; ++i) deadMan.slower();
  EXPECT_FLOAT_EQ(deadMan.wanted(1700).forward, -0.08F);
  EXPECT_FALSE(deadMan.press(U'z', 1700));
  deadMan.letGo();
  EXPECT_EQ(deadMan.wanted(1700), Velocity{});
}

TEST(RateMeter, TellsWhatCameInTheLastTwoSeconds) {
  RateMeter meter;
  for (std::uint64_t now = 1000; now <= 6000; now += 2) {
    if (now <= 5000) meter.count();
    const double rate = now % 100 == 0 ? meter.perSecond(now) : 0;
    if (rate > 0 && now >= 1200 && now <= 5000) {
      EXPECT_NEAR(rate, 500, 6) << now;
    }
  }
  EXPECT_NEAR(meter.perSecond(6000), 250, 6);
  EXPECT_EQ(meter.perSecond(60000), 0);
}

}  // namespace
}  // namespace robotctl
