// robotctl as its users meet it: the program itself, virtual robots in processes of their own, exit
// status and words, also when things go wrong.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <csignal>
#include <sstream>
#include <string>
#include <vector>

#include "core/Text.h"
#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr std::uint32_t kExitMs = 60000;

Words command(const Words& words) {
  Words all{ROBOTCTL};
  all.insert(all.end(), words.begin(), words.end());
  return all;
}

/// robotctl on the loopback interface, where the robots are.
class Robotctl : public Process {
 public:
  explicit Robotctl(Words words) : Process(command(onLoopback(std::move(words)))) {}

 private:
  static Words onLoopback(Words words) {
    words.insert(words.end(), {"--interface", "lo"});
    return words;
  }
};

/// Runs it to its end: exit status, and what it wrote.
struct Outcome {
  explicit Outcome(Process&& process) : status(process.finish(kExitMs)), text(process.output()) {}
  std::optional<int> status;
  std::string text;
};

Outcome run(Words words) {
  return Outcome(Robotctl(std::move(words)));
}

/// What it prints on standard output as JSON; null when that isn't any.
Json::Value document(Words words) {
  words.insert(words.end(), {"--json", "--quiet"});
  Json::Value value;
  std::istringstream stream(run(std::move(words)).text);
  return Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, nullptr) ? value
                                                                                   : Json::Value();
}

std::string postureOf(const std::string& robot) {
  return document({"status", "--robot", robot})["motion"]["posture"].asString();
}

bool isFree(const std::string& robot) {
  return document({"status", "--robot", robot})["motion"]["control"]["controlled"] == false;
}

struct Step {
  Words words;
  int status;
  Words says;  // each of them, somewhere
};

void expect(const std::vector<Step>& steps, const Words& always = {}) {
  for (const Step& step : steps) {
    Words words = step.words;
    words.insert(words.end(), always.begin(), always.end());
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, step.status) << testing::PrintToString(words) << outcome.text;
    for (const std::string& text : step.says) {
      EXPECT_THAT(outcome.text, HasSubstr(text)) << testing::PrintToString(words);
    }
  }
}

TEST(RobotctlMotion, TakesTheRobotThroughEveryPostureAndSaysWhatItRefuses) {
  const RobotProcess robot("dog");
  // Without a name the one that answers is meant.
  expect({
      {{"discover", "--find-timeout", "2"}, 0, {"ROBOT", "dog", "lying", "free"}},
      {{"lie"}, 0, {"robot dog: lying"}},
  });
  expect(
      {
          {{"info"}, 0, {"library", "capabilities.walking.lineVelocityX.max", "FL_hip"}},
          {{"walk", "0.2", "0", "0", "--for", "1"},
           1,
           {"robot dog refused velocityMove", "errno 11 (not possible now)", "error 9",
            "posture lying", "control held by robotctl@", "hint: robotctl stand first"}},
          {{"status"},
           0,
           {"last refusal", "it must stand to walk", "battery", "control       free",
            "attitude      roll +0°, pitch +0°", "x +0.00 m, y +0.00 m, yaw +0.00 rad"}},
          {{"stand"}, 0, {"robot dog: standing"}},
          {{"walk", "-0.2", "0", "-.5", "--for", "1"}, 0, {"standing at x -0."}},
          {{"walk", "0.1", "0", "0", "--for", "0.2", "--json", "-q"},
           0,
           {R"("robot" : "dog")", R"("action" : "walk")", R"("posture" : "standing")",
            R"("odometry" :)"}},
          {{"walk", "7", "0", "0", "--for", "1"},
           1,
           {"errno 34 (out of range)", "VX is lineVelocityX", "robotctl info"}},
          {{"stop"}, 0, {"robot dog: standing"}},
          {{"estop"}, 0, {"robot dog: emergencyStop"}},
          {{"stand"}, 1, {"hint: robotctl recover"}},
          {{"recover", "--no-wait"}, 0, {}},
          {{"recover"}, 0, {"robot dog: standing"}},
          {{"lie"}, 0, {"robot dog: lying"}},
      },
      {"--robot", "dog"});
  EXPECT_TRUE(isFree("dog"));
}

TEST(RobotctlMotion, SaysThatARobotHasFallenAndGetsItUp) {
  if (!orvane::robot::kHasPhysics) GTEST_SKIP() << "no body that can fall";
  const LocalRobot robot("dog", BodyKind::kPhysics);
  ASSERT_TRUE(robot.falls() && robot.reaches(Posture::kFallen));
  expect(
      {
          {{"status"}, 0, {"fallen", "roll "}},
          {{"doctor"}, 0, {"dog (virtual-quadruped): fallen", "cure   robotctl recover"}},
          {{"status", "--json", "-q"}, 0, {R"("posture" : "fallen")"}},
          {{"watch", "--count", "2"}, 0, {"fallen"}},
          {{"walk", "0.2", "0", "0", "--for", "1"},
           1,
           {"refused velocityMove", "the robot has fallen", "errno 11 (not possible now)",
            "posture fallen", "hint: robotctl recover"}},
          {{"recover"}, 0, {"robot dog: standing"}},
      },
      {"--robot", "dog"});
}

TEST(RobotctlMedia, PlaysPausesAndLights) {
  const RobotProcess robot("dog");
  expect(
      {
          {{"audio", "list"}, 0, {"NAME", "greeting", "march", "wav"}},
          {{"audio", "list", "--contains", "gree", "--json"}, 0, {"\"total\" : 1"}},
          {{"audio", "pause"}, 1, {"errno 11", "hint: robotctl audio detail"}},
          {{"audio", "play", "march", "bark", "--loop", "list", "--volume", "30"}, 0, {}},
          {{"audio", "pause"}, 0, {}},
          {{"audio", "detail"}, 0, {"paused", "march, bark", "30"}},
          {{"audio", "resume"}, 0, {}},
          {{"audio", "detail"}, 0, {"playing"}},
          {{"audio", "stop"}, 0, {}},
          {{"audio", "add", "good morning", "--format", "wav", "--length", "1.5", "--bytes",
            "48044"},
           0,
           {}},
          {{"audio", "delete", "good morning"}, 0, {}},
          {{"audio", "delete", "good morning"},
           1,
           {"errno 2 (no such file)", "hint: robotctl audio list"}},
          {{"light", "set", "80"}, 0, {}},
          {{"light", "get"}, 0, {"80"}},
          {{"light", "set", "101"}, 1, {"errno 34 (out of range)"}},
      },
      {"--robot", "dog"});
}

TEST(RobotctlUsage, WrongCommandLinesAreRefusedBeforeAnythingHappens) {
  const std::vector<std::pair<Words, std::string>> wrong{
      {{"frobnicate"}, "robotctl has no subcommand 'frobnicate'"},
      {{"audio"}, "robotctl audio --help"},
      {{"stand", "extra"}, "extra"},
      {{"walk", "1", "2"}, "WZ"},
      {{"walk", "1", "0", "0"}, "--for"},
      {{"walk", "nan", "0", "0", "--for", "1"}, "VX"},
      {{"walk", "1", "0", "0", "--for", "0"}, "--for"},
      {{"status", "--timeout", "nan"}, "--timeout"},
      {{"audio", "play", "--loop", "forever"}, "--loop"},
      {{"audio", "play", "--position", "nan"}, "--position"},
      {{"audio", "dance"}, "robotctl audio has no subcommand 'dance'"},
      {{"light", "set", "-1"}, "BRIGHTNESS"},
      {{"audio", "list", "--limit", "-1"}, "--limit: Value -1 not in range 0 to 4294967295"},
      {{"status", "--board-master"}, "--board-master"},
  };
  for (const auto& [words, text] : wrong) expect({{words, 2, {"robotctl: ", text, "hint: "}}});
  expect({{{"walk", "--help"}, 0, {"robotctl walk", "--for", "SECONDS"}},
          {{"--version"}, 0, {"robotctl 1."}},
          {{"status", "--config", "/nowhere"}, 6, {"/nowhere"}}});
  const Outcome elsewhere{Process(command({"status", "--interface", "nosuch0"}))};
  EXPECT_EQ(elsewhere.status, 6);
  EXPECT_THAT(elsewhere.text, HasSubstr("'nosuch0'"));
}

TEST(RobotctlText, IsUtf8WhateverARobotSays) {
  EXPECT_EQ(robotctl::printable("a\xc3(\x1b[1m\xe2\x82\xac\xed\xa0\x80\xc2\x9b\xf0\x9f"),
            "a?(?[1m\xe2\x82\xac???????");
  EXPECT_EQ(robotctl::asUtf8("{\n\"\xff\xc3\xa4\""), "{\n\"?\xc3\xa4\"");
  EXPECT_EQ(robotctl::shortened("a\xe2\x82\xac", 3), "a");
  EXPECT_EQ(robotctl::shortened("a\xe2\x82\xac", 4), "a\xe2\x82\xac");
}

TEST(RobotctlFinding, SaysWhichRobotsThereAre) {
  expect({{{"status", "--find-timeout", "1"}, 3, {"no robot answered within 1 s on interface lo"}},
          {{"discover", "--find-timeout", "1", "--json"}, 3, {"[]", "\"exitCode\":3"}}});
  const RobotProcess cat("cat");
  const RobotProcess dog("dog");
  const Json::Value found = document({"discover", "--find-timeout", "3"});
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0]["deviceNo"], "cat");
  EXPECT_EQ(found[1]["detail"]["posture"], "lying");
  expect({{{"status"}, 3, {"several robots answered: cat, dog", "--robot"}},
          {{"status", "--robot", "bird", "--find-timeout", "1"},
           3,
           {"robot bird didn't answer", "cat, dog"}}});
  EXPECT_EQ(postureOf("cat"), "lying");
}

TEST(RobotctlFinding, WatchTellsOfRobotsThatComeAndGo) {
  Robotctl watch({"discover", "--watch", "--json"});
  {
    const RobotProcess robot("dog");
    EXPECT_TRUE(watch.says(R"("event":"appeared")", kLimitMs)) << watch.output();
  }
  EXPECT_TRUE(watch.says(R"("event":"gone")", kLimitMs)) << watch.output();
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.finish(kExitMs), 143);
}

TEST(RobotctlControl, IsHeldUntilCtrlCAndNamedToOthers) {
  const RobotProcess robot("dog");
  Robotctl holder({"take", "--robot", "dog"});
  ASSERT_TRUE(holder.says("obtained", kLimitMs)) << holder.output();
  expect({{{"stand", "--robot", "dog", "--control-timeout", "1"},
           4,
           {"error 2", "errno 16 (somebody else has control)", "held by robotctl@", "hint: "}}});
  expect({{{"estop", "--robot", "dog", "--control-timeout", "1", "-q"}, 4, {"NOT stopped yet: "}}});
  const Outcome json = run({"stand", "--robot", "dog", "--control-timeout", "1", "--json", "-q"});
  Json::Value failure;
  std::istringstream(json.text) >> failure;
  EXPECT_EQ(failure["error"]["exitCode"], 4);
  EXPECT_EQ(failure["error"]["control"]["controlled"], true);
  holder.signal(SIGINT);
  EXPECT_EQ(holder.finish(kExitMs), 130) << holder.output();
  EXPECT_TRUE(isFree("dog"));
  expect({{{"take", "--for", "0.2", "--robot", "dog"}, 0, {"given back"}}});
}

/// A robot that stands, and a walk that is under way.
struct Walking {
  explicit Walking(const Words& options = {}) {
    expect({{{"stand", "--robot", "dog"}, 0, {}}});
    Words words{"walk", "0.1", "0", "0", "--for", "60", "--robot", "dog"};
    words.insert(words.end(), options.begin(), options.end());
    walk = std::make_unique<Robotctl>(words);
    EXPECT_TRUE(waitUntil([] { return postureOf("dog") == "walking"; }, kLimitMs));
  }
  const RobotProcess robot{"dog"};
  std::unique_ptr<Robotctl> walk;
};

TEST(RobotctlWalk, CtrlCStopsTheRobotAndGivesControlBack) {
  const Walking dog;
  dog.walk->signal(SIGINT);
  EXPECT_EQ(dog.walk->finish(kExitMs), 130) << dog.walk->output();
  EXPECT_THAT(dog.walk->output(), HasSubstr("robot dog: stopped; control given back"));
  EXPECT_TRUE(isFree("dog"));
  EXPECT_TRUE(waitUntil([] { return postureOf("dog") == "standing"; }, kLimitMs));
}

TEST(RobotctlWalk, LostControlIsExplained) {
  const Walking dog;
  EXPECT_THAT(dog.robot.tell("preempt remote"), HasSubstr("remote"));
  EXPECT_EQ(dog.walk->finish(kExitMs), 4);
  EXPECT_THAT(dog.walk->output(), HasSubstr("held by remote"));
}

TEST(RobotctlWalk, RobotThatDiesIsNoticed) {
  const Walking dog({"--timeout", "1"});
  EXPECT_THAT(dog.robot.tell("die"), HasSubstr("die"));
  EXPECT_EQ(dog.walk->finish(kExitMs), 5) << dog.walk->output();
  EXPECT_THAT(dog.walk->output(), HasSubstr("robot dog didn't answer velocityMove"));
}

TEST(RobotctlOutput, ClosedPipeIsQuietAndFullDiskIsNot) {
  const auto shell = [](const std::string& script) {
    return Outcome(Process({"/bin/bash", "-c", script, ROBOTCTL}));
  };
  // The reader has ended before anything is written.
  const Outcome closed = shell("exec > >(:); wait $!; \"$0\" completion bash; echo $? >&2");
  EXPECT_EQ(closed.text, "141\n");
  // A closed standard output isn't lent to something else.
  const Outcome none = shell("\"$0\" completion bash >&-");
  EXPECT_EQ(none.status, 6);
  EXPECT_THAT(none.text, HasSubstr("Bad file descriptor"));
  const Outcome full = shell("\"$0\" completion bash >/dev/full");
  EXPECT_EQ(full.status, 6);
  EXPECT_THAT(full.text, HasSubstr("No space left"));
}

TEST(RobotctlCompletion, BashCompletesSubcommandsOptionsAndValues) {
  const std::vector<std::pair<std::string, std::string>> lines{
      {"au", "audio"},
      {"audio pl", "play"},
      {"--json audio play bark --lo", "--loop"},
      {"audio play --loop tr", "track"},
      {"walk 1 -0.5 0 --fo", "--for"},
      {"status --interface l", "lo"},
      {"completion z", "zsh"},
      {"--timeout 3 stat", "status"},
  };
  for (const auto& [typed, completed] : lines) {
    const std::string script = "source <(\"$0\" completion bash); COMP_WORDS=(\"$0\" " + typed +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _robotctl; "
                               "echo \"${COMPREPLY[*]}\"";
    const Outcome outcome{Process({"/bin/bash", "-c", script, ROBOTCTL})};
    EXPECT_EQ(outcome.text, completed + "\n") << typed;
  }
}

TEST(RobotctlCompletion, OffersTheRobotsThatAnswerButNoneWhoseNameIsntPlain) {
  const RobotProcess dog("dog");
  const RobotProcess split("d:g");  // bash would break the word there
  const auto offered = [](const Words& typed) {
    Words words = command({"completion", "words"});
    words.insert(words.end(), typed.begin(), typed.end());
    return Outcome(Process(words)).text;
  };
  const std::string dogsLine = "dog\tDevice id of the robot; the one that answers if left out\n";
  EXPECT_EQ(offered({"--interface", "lo", "status", "--robot", ""}), dogsLine);
  EXPECT_EQ(offered({"--interface", "=", "lo", "status", "--robot", "=", "d"}), dogsLine);
  EXPECT_EQ(offered({"--interface", "lo", "status", "--robot", "c"}), "");
  EXPECT_EQ(offered({"--interface", "nosuch0", "status", "--robot", ""}), "");
}

TEST(RobotctlOnBoard, HasOneRobotAndDiscoversNothing) {
  Process robot({VIRTUAL_ROBOT, "--board"});
  ASSERT_TRUE(robot.says("ready", kLimitMs)) << robot.output();
  const std::vector<Step> steps{
      {{"discover"}, 2, {"it has one robot"}},
      {{"status", "--robot", "dog"}, 2, {"--robot"}},
      {{"stand"}, 0, {"this board's robot: standing"}},
      {{"lie", "--board-master"}, 0, {"this board's robot: lying"}},
      {{"status"}, 0, {"VR-0001"}},
  };
  for (const Step& step : steps) {
    const Outcome outcome{Process(command(step.words))};
    EXPECT_EQ(outcome.status, step.status) << outcome.text;
    EXPECT_THAT(outcome.text, HasSubstr(step.says[0]));
  }
}

}  // namespace
}  // namespace sdk_test
