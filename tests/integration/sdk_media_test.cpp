// Media and system requests through the real library to a robot in a process of its own. Runs
// twice: on an external host, and (the suite Media alone) on the robot board.

#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "pbase/Utils.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

constexpr std::uint32_t kNotSent = 3;
constexpr std::uint32_t kNotInControl = 7;
constexpr std::uint32_t kRefused = 9;
constexpr const char* kDevice = "VR-M";

bool onBoard() {
  return ::access("/etc/dds/motion_config.xml", F_OK) == 0;
}

Json::Value parsed(const std::string& text) {
  Json::Value document;
  EXPECT_TRUE(Pexal::Utils::stringToJson(text, document)) << text;
  return document;
}

Json::Value detailOf(const Client& client) {
  std::string text;
  EXPECT_TRUE(client->getAudioPlayDetail(&text, kRequestMs)) << client->getLastError();
  return parsed(text);
}

/// What was told of the play list so far: "trackEnded short finished".
std::vector<std::string> heard(const Client& client) {
  std::vector<std::string> texts;
  for (const std::string& event : client.seen->events()) {
    const Json::Value detail = parsed(event);
    if (detail["type"] != Json::Value("audio")) continue;
    std::string text = detail["event"].asString();
    for (const char* member : {"name", "reason"}) {
      if (detail.isMember(member)) text += ' ' + detail[member].asString();
    }
    texts.push_back(std::move(text));
  }
  return texts;
}

bool hears(const Client& client, const std::string& event) {
  return waitUntil([&] {
    const auto texts = heard(client);
    return std::find(texts.begin(), texts.end(), event) != texts.end();
  });
}

/// A robot and a client of it that is connected, in either deployment.
class Media : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(sdk_.initialised());
    ASSERT_TRUE(client_.handle);
  }

  RobotProcess robot_{kDevice,
                      onBoard() ? std::vector<std::string>{"--board"} : std::vector<std::string>{}};
  const Sdk sdk_;
  const Client client_ = onBoard() ? connectOnBoard(true) : connectTo(kDevice);
};

TEST_F(Media, EachOperationDoesWhatItSaysAndNeedsControlOrNot) {
  const char* const kFile = R"({"name":"mine","format":"ogg","lengthMs":5000,"sizeBytes":9})";
  const char* const kList = R"({"files":["march","bark"],"volume":9})";
  const auto status = [&](const char* path) {
    std::string text;
    EXPECT_TRUE(client_->getSystemStatus(&text, kRequestMs)) << client_->getLastError();
    return Json::Path(path).resolve(parsed(text)).asString();
  };
  const auto filesLike = [&](const char* filter) {
    std::string text;
    EXPECT_TRUE(client_->getAudioPlayList(filter, &text, kRequestMs)) << client_->getLastError();
    return parsed(text)["total"].asInt();
  };
  EXPECT_EQ(status(".deviceNo"), kDevice);
  EXPECT_EQ(status(".versions.robot"), "1.0.0");
  EXPECT_EQ(filesLike(""), 3);
  EXPECT_EQ(detailOf(client_)["state"].asString(), "stopped");

  std::string light = "untouched";
  const auto refused = [&](bool done) { return !done && client_->getLastError() == kNotInControl; };
  EXPECT_TRUE(refused(client_->setCameraLightBrightness(80, kRequestMs)));
  EXPECT_TRUE(refused(client_->getCameraLightBrightness(&light, kRequestMs)));
  EXPECT_TRUE(refused(client_->addAudioFile(kFile, kRequestMs)));
  EXPECT_TRUE(refused(client_->deleteAudioFile(R"({"name":"bark"})", kRequestMs)));
  EXPECT_TRUE(refused(client_->startPlayList(kList, kRequestMs)));
  EXPECT_TRUE(refused(client_->pausePlayList(kRequestMs)));
  EXPECT_TRUE(refused(client_->stopPlayList(kRequestMs)));
  EXPECT_EQ(light, "untouched");

  ASSERT_TRUE(takeControl(client_));
  EXPECT_TRUE(client_->setCameraLightBrightness(80, kRequestMs));
  EXPECT_TRUE(client_->getCameraLightBrightness(&light, kRequestMs));
  EXPECT_EQ(parsed(light)["brightness"], Json::Value(80));
  EXPECT_TRUE(client_->addAudioFile(kFile, kRequestMs));
  EXPECT_EQ(filesLike(R"({"contains":"mine"})"), 1);
  EXPECT_EQ(filesLike(R"({"format":"wav"})"), 3);
  EXPECT_TRUE(client_->deleteAudioFile(R"({"name":"mine"})", kRequestMs));
  EXPECT_EQ(filesLike(R"({"contains":"mine"})"), 0);
  EXPECT_TRUE(client_->startPlayList(kList, kRequestMs));
  EXPECT_EQ(detailOf(client_)["name"].asString(), "march");
  EXPECT_TRUE(client_->pausePlayList(kRequestMs));
  EXPECT_EQ(detailOf(client_)["state"].asString(), "paused");
  EXPECT_TRUE(client_->startPlayList("", kRequestMs));
  EXPECT_EQ(detailOf(client_)["state"].asString(), "playing");
  EXPECT_TRUE(client_->stopPlayList(kRequestMs));
  EXPECT_TRUE(hears(client_, "paused march") && hears(client_, "listEnded stopped"));
}

TEST_F(Media, ListsPlayInTimeAndAreTold) {
  ASSERT_TRUE(takeControl(client_));
  ASSERT_TRUE(client_->addAudioFile(
      R"({"name":"short","format":"wav","lengthMs":700,"sizeBytes":1})", kRequestMs));
  const std::uint64_t beganMs = nowMs();
  ASSERT_TRUE(client_->startPlayList(R"({"files":["short","short"]})", kRequestMs));
  ASSERT_TRUE(hears(client_, "listEnded finished"));
  EXPECT_GE(nowMs() - beganMs, 1390U) << "two of 700 ms";
  EXPECT_EQ(heard(client_),
            (std::vector<std::string>{"trackStarted short", "trackEnded short finished",
                                      "trackStarted short", "trackEnded short finished",
                                      "listEnded finished"}));

  ASSERT_TRUE(client_->startPlayList(R"({"files":["march","short"]})", kRequestMs));
  const auto position = [&] { return detailOf(client_)["positionMs"].asUInt64(); };
  const std::uint64_t first = position();
  EXPECT_TRUE(waitUntil([&] { return position() > first; }));
  EXPECT_TRUE(robot_.says("playing march (", kLimitMs)) << robot_.output();
  ASSERT_TRUE(client_->pausePlayList(kRequestMs));
  ASSERT_TRUE(client_->deleteAudioFile(R"({"name":"march"})", kRequestMs));
  EXPECT_EQ(detailOf(client_)["name"].asString(), "short") << "the one that played is gone";
  EXPECT_EQ(detailOf(client_)["state"].asString(), "paused");
  ASSERT_TRUE(client_->deleteAudioFile(R"({"name":"short"})", kRequestMs));
  EXPECT_TRUE(hears(client_, "listEnded deleted"));
}

TEST_F(Media, BadDocumentsAreRefusedAndHarmNothing) {
  ASSERT_TRUE(takeControl(client_));
  const auto errorOf = [&](const std::string& document) {
    EXPECT_FALSE(client_->startPlayList(document, kRequestMs)) << document.substr(0, 80);
    return client_->getLastError();
  };
  // The robot isn't asked.
  EXPECT_EQ(errorOf("{files"), kRefused);
  EXPECT_EQ(errorOf(R"({"volume":NaN})"), kRefused);
  EXPECT_EQ(errorOf(std::string(100, '[') + std::string(100, ']')), kRefused);
  EXPECT_EQ(errorOf('"' + std::string(2'000'000, 'x') + '"'), kNotSent);
  EXPECT_EQ(stateText(client_, "lastRefusal.reason"), "");

  EXPECT_EQ(errorOf(R"({"files":["nothing"]})"), kRefused);
  EXPECT_EQ(stateText(client_, "lastRefusal.reason"), "there is no audio file nothing");
  EXPECT_TRUE(client_->startPlayList(R"({"files":["bark"]})", kRequestMs));
}

TEST(TwoClients, HearTheSameAndWhoHoldsControlDecides) {
  const RobotProcess robot(kDevice);
  const Sdk sdk;
  const Client first = connectTo(kDevice);
  const Client second = connectTo(kDevice);
  ASSERT_TRUE(first.handle && second.handle);
  std::string text;
  ASSERT_TRUE(second->getSystemStatus(&text, kRequestMs));
  ASSERT_TRUE(takeControl(first));
  ASSERT_TRUE(first->startPlayList(R"({"files":["march"],"loop":"list"})", kRequestMs));
  EXPECT_EQ(detailOf(second)["name"].asString(), "march");
  EXPECT_FALSE(second->stopPlayList(kRequestMs));
  EXPECT_EQ(second->getLastError(), kNotInControl);

  ASSERT_TRUE(first->releaseMotionControl());
  ASSERT_TRUE(waitUntil([&] { return stateText(second, "control.controller").empty(); }));
  ASSERT_TRUE(takeControl(second));
  EXPECT_EQ(detailOf(second)["state"].asString(), "playing") << "it outlives who started it";
  EXPECT_TRUE(second->stopPlayList(kRequestMs)) << second->getLastError();
  for (const Client& client : {first, second}) {
    EXPECT_TRUE(hears(client, "listEnded stopped"));
    EXPECT_EQ(heard(client),
              (std::vector<std::string>{"trackStarted march", "trackEnded march stopped",
                                        "listEnded stopped"}));
  }
}

}  // namespace
}  // namespace sdk_test
