// Media and system requests through the real library to a robot in a process of its own. Runs
// twice: on an external host, and (the suite Media alone) on the robot board.

#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pbase/Utils.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using Ask = std::function<bool(IMotionHighLevelClient&, std::string*)>;

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
  struct Row {
    const char* name;
    bool needsControl;
    Ask ask;
    const char* path;    ///< into what is answered
    const char* answer;  ///< there
  };
  using C = IMotionHighLevelClient;
  const auto add = R"({"name":"mine","format":"ogg","lengthMs":5000,"sizeBytes":9})";
  const auto text = [](bool (C::*ask)(std::string*, std::uint32_t)) {
    return [ask](C& client, std::string* out) { return (client.*ask)(out, kRequestMs); };
  };
  const auto plain = [](bool (C::*ask)(std::uint32_t)) {
    return [ask](C& client, std::string*) { return (client.*ask)(kRequestMs); };
  };
  const auto json = [](bool (C::*ask)(const std::string&, std::uint32_t), const char* document) {
    return [=](C& client, std::string*) { return (client.*ask)(document, kRequestMs); };
  };
  const auto list = [](const char* filter) {
    return [=](C& client, std::string* out) {
      return client.getAudioPlayList(filter, out, kRequestMs);
    };
  };
  const Row kRows[] = {
      {"status", false, text(&C::getSystemStatus), ".deviceNo", kDevice},
      {"versions", false, text(&C::getSystemStatus), ".versions.robot", "1.0.0"},
      {"detail", false, text(&C::getAudioPlayDetail), ".state", "stopped"},
      {"all", false, list(""), ".total", "3"},
      {"light", true,
       [](C& client, std::string*) { return client.setCameraLightBrightness(80, kRequestMs); }, "",
       ""},
      {"light is", true, text(&C::getCameraLightBrightness), ".brightness", "80"},
      {"add", true, json(&C::addAudioFile, add), "", ""},
      {"filtered", false, list(R"({"format":"wav"})"), ".total", "3"},
      {"play", true, json(&C::startPlayList, R"({"files":["march","bark"],"volume":9})"), "", ""},
      {"playing", false, text(&C::getAudioPlayDetail), ".name", "march"},
      {"pause", true, plain(&C::pausePlayList), "", ""},
      {"paused", false, text(&C::getAudioPlayDetail), ".state", "paused"},
      {"resume", true, json(&C::startPlayList, ""), "", ""},
      {"stop", true, plain(&C::stopPlayList), "", ""},
      {"delete", true, json(&C::deleteAudioFile, R"({"name":"mine"})"), "", ""},
      {"stopped", false, text(&C::getAudioPlayDetail), ".state", "stopped"},
      {"listed", false, list(R"({"contains":"mine"})"), ".total", "0"},
  };
  for (const Row& row : kRows) {
    if (!row.needsControl) continue;
    std::string out = "untouched";
    EXPECT_FALSE(row.ask(*client_.handle, &out)) << row.name;
    EXPECT_EQ(client_->getLastError(), kNotInControl) << row.name;
    EXPECT_EQ(out, "untouched");
  }
  ASSERT_TRUE(takeControl(client_));
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    std::string out;
    ASSERT_TRUE(row.ask(*client_.handle, &out)) << client_->getLastError();
    if (*row.path == '\0') continue;
    EXPECT_EQ(Json::Path(row.path).resolve(parsed(out)).asString(), row.answer) << out;
  }
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
  using C = IMotionHighLevelClient;
  struct Row {
    bool (C::*ask)(const std::string&, std::uint32_t);
    std::string document;
    const char* reason;  ///< the robot's; null: it isn't asked
    std::uint32_t error = kRefused;
  };
  const Row kRows[] = {
      {&C::startPlayList, "{files", nullptr},
      {&C::startPlayList, R"({"volume":NaN})", nullptr},
      {&C::startPlayList, std::string(100, '[') + std::string(100, ']'), nullptr},
      {&C::startPlayList, R"({"files":["nothing"]})", "there is no audio file nothing"},
      {&C::startPlayList, R"({"files":)" + std::string(60, '[') + std::string(60, ']') + "}",
       "params: files must be"},
      {&C::startPlayList, R"({"files":[")" + std::string(500'000, 'x') + "\"]}",
       "params: files must be"},
      {&C::startPlayList, '"' + std::string(2'000'000, 'x') + '"', nullptr, kNotSent},
      {&C::startPlayList, "", "nothing is played or paused"},
      {&C::startPlayList, "7", "request: params must be an object"},
      {&C::addAudioFile, R"({"name":"../x","format":"wav","lengthMs":1000,"sizeBytes":1})",
       "an audio file's name has"},
      {&C::addAudioFile, R"({"name":"x","format":"wav","sizeBytes":1})",
       "params: lengthMs is missing"},
      {&C::addAudioFile, R"({"name":"bark","format":"wav","lengthMs":1000,"sizeBytes":1})",
       "there is an audio file bark already"},
      {&C::deleteAudioFile, R"({"name":"nothing"})", "there is no audio file nothing"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.document.substr(0, 80));
    EXPECT_FALSE((client_.handle.get()->*row.ask)(row.document, kRequestMs));
    EXPECT_EQ(client_->getLastError(), row.error);
    if (row.reason == nullptr) continue;
    EXPECT_EQ(stateText(client_, "lastRefusal.reason").rfind(row.reason, 0), 0U)
        << stateText(client_, "lastRefusal.reason");
  }
  EXPECT_FALSE(client_->setCameraLightBrightness(101, kRequestMs));
  EXPECT_EQ(stateNumber(client_, "lastRefusal.errno"), 34);
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
