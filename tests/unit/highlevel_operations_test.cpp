// The operations that are one request each, one row each: motion, media, system.

#include <cmath>

#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using orvane::RobotSdk::makeBoardHighLevelClient;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Client = orvane::RobotSdk::IMotionHighLevelClient;
using Text = const std::string&;

constexpr bool kControl = true;
constexpr bool kConnection = false;

/// What a text that is no JSON is to the operation, and what an empty one stands for.
enum class Takes { kNoText, kMediaText, kActionText };

struct Row {
  bool needsControl;
  const char* method;
  const char* params;  ///< "" for none; the caller's text stands for "@"
  Takes takes;
  const char* nullResult;  ///< what the caller gets for null; "" when there is nothing to get
  bool (*call)(Client& c, Text json, std::string* out);
};

#define CALLS(operation)                             \
  [](Client& c, Text json, std::string* out) {       \
    static_cast<void>(json), static_cast<void>(out); \
    return c.operation;                              \
  }

using enum Takes;

const Row kRows[] = {
    {kControl, "stopMotionAction", "", kNoText, "", CALLS(stopMotionAction(70))},
    {kControl, "emergencyStopMotion", "", kNoText, "", CALLS(emergencyStopMotion(70))},
    {kControl, "startMotionAction", R"({"action":"recoveryStand"})", kNoText, "",
     CALLS(recoveryStand(70))},
    {kControl, "startMotionAction", R"({"action":"disableAction"})", kNoText, "",
     CALLS(disableAction(70))},
    {kControl, "startMotionAction", R"({"action":"laying"})", kNoText, "", CALLS(laying(70))},
    {kControl, "startMotionAction", R"({"action":"standing"})", kNoText, "", CALLS(standing(70))},
    {kControl, "startMotionAction",
     R"({"action":"walking","params":)"
     R"({"lineVelocityX":0.5,"lineVelocityY":-0.25,"velocity":0.125}})",
     kNoText, "", CALLS(velocityMove(0.5F, -0.25F, 0.125F, 70))},
    {kControl, "startMotionAction", R"({"action":"wave","params":@})", kActionText, "",
     CALLS(startMotionAction("wave", json, 70))},
    {kControl, "setMotionActionParams", R"({"params":@})", kActionText, "",
     CALLS(setMotionActionParams(json, 70))},
    {kConnection, "queryMotionState", "", kNoText, "{}", CALLS(queryMotionState(out, 70))},
    {kConnection, "getMotionCapabilities", "", kNoText, "null",
     CALLS(getMotionCapabilities(out, 70))},
    {kControl, "startPlayList", "@", kMediaText, "", CALLS(startPlayList(json, 70))},
    {kControl, "stopPlayList", "", kNoText, "", CALLS(stopPlayList(70))},
    {kControl, "stopPlayList", R"({"pause":true})", kNoText, "", CALLS(pausePlayList(70))},
    {kControl, "addAudioFile", "@", kMediaText, "", CALLS(addAudioFile(json, 70))},
    {kControl, "deleteAudioFile", "@", kMediaText, "", CALLS(deleteAudioFile(json, 70))},
    {kControl, "setCameraLightBrightness", R"({"brightness":4000000000})", kNoText, "",
     CALLS(setCameraLightBrightness(4000000000U, 70))},
    {kControl, "getCameraLightBrightness", "", kNoText, "null",
     CALLS(getCameraLightBrightness(out, 70))},
    {kConnection, "getSystemStatus", "", kNoText, "null", CALLS(getSystemStatus(out, 70))},
    {kConnection, "getAudioPlayDetail", "", kNoText, "null", CALLS(getAudioPlayDetail(out, 70))},
    {kConnection, "getAudioPlayList", "@", kMediaText, "null",
     CALLS(getAudioPlayList(json, out, 70))},
};

class Operations : public ClientTest {
 protected:
  /// The params of the last request as text, "" when it had none.
  std::string lastParams() {
    const Json::Value document = bus.requests().back().document;
    return document.isMember("params") ? text(document["params"]) : "";
  }
  static std::string withText(std::string params, Text json) {
    if (const auto at = params.find('@'); at != std::string::npos) params.replace(at, 1, json);
    return params;
  }
};

TEST_F(Operations, GatesComeBeforeTexts) {
  for (const bool connected : {false, true}) {
    if (connected) connect();
    for (const Row& row : kRows) {
      SCOPED_TRACE(row.method);
      if (connected && !row.needsControl) continue;
      EXPECT_FALSE(row.call(*client, "not json", nullptr));
      EXPECT_EQ(error(), row.needsControl ? 7U : 6U);
    }
  }
  EXPECT_THAT(bus.requests(), IsEmpty());
  EXPECT_TRUE(client->getSystemStatus(nullptr, 70));
  EXPECT_THAT(speakers("getSystemStatus"), ElementsAre(kOwnId));
}

TEST_F(Operations, AreOneRequestAndHandOutItsResult) {
  const std::string given = R"({"list":3,"name":"song"})";
  hold();
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.params + std::string(row.method));
    const bool gives = *row.nullResult != '\0';
    bus.forgetRequests();
    std::string out = "old";
    robot.on(row.method, accepted("yes"));
    EXPECT_TRUE(row.call(*client, given, &out));
    EXPECT_EQ(out, gives ? "\"yes\"" : "old");
    ASSERT_THAT(bus.requests(), SizeIs(1));
    const Request request = bus.requests()[0];
    EXPECT_EQ(request.server + ' ' + request.service, "robotServer robotAppService");
    EXPECT_EQ(request.method, row.method);
    EXPECT_EQ(request.deviceId, "dog-7");
    EXPECT_EQ(request.timeoutMs, 70U);
    EXPECT_EQ(request.document["call"], object({{"clientId", "controller-1"}}));
    EXPECT_EQ(lastParams(), withText(row.params, given));
    EXPECT_TRUE(row.call(*client, given, nullptr)) << "nobody wants the result";

    robot.on(row.method, accepted());
    EXPECT_TRUE(row.call(*client, "", &out));
    EXPECT_EQ(out, gives ? row.nullResult : "old");
    EXPECT_EQ(lastParams(), withText(row.params, row.takes == kActionText ? "{}" : ""));
    robot.on(row.method, refused(0, "no"));
    EXPECT_FALSE(row.call(*client, "", &(out = "old")));
    EXPECT_EQ(out, "old") << "written on success only";
    EXPECT_EQ(error(), 9U);
    robot.on(row.method, transportFailure(1));
    EXPECT_FALSE(row.call(*client, "", &out));
    EXPECT_EQ(error(), 3U);

    bus.forgetRequests();
    if (row.takes == kNoText) continue;
    for (const std::string& bad : {std::string("{"), std::string("{} x"), std::string(1000, '[')}) {
      EXPECT_FALSE(row.call(*client, bad, &out));
      EXPECT_EQ(error(), row.takes == kMediaText ? 9U : 10U);
    }
    EXPECT_THAT(bus.requests(), IsEmpty());
  }
}

TEST_F(Operations, NullParamsOfAnActionAreLeftOutAndVelocitiesNeedBeNoNumbers) {
  hold();
  EXPECT_TRUE(client->startMotionAction("wave", "null", 70));
  EXPECT_EQ(lastParams(), R"({"action":"wave"})");
  EXPECT_TRUE(client->velocityMove(std::nanf(""), INFINITY, -1e30F, 70));
  const Json::Value sent = bus.requests().back().document["params"]["params"];
  EXPECT_TRUE(std::isnan(sent["lineVelocityX"].asDouble()));
  EXPECT_TRUE(std::isinf(sent["lineVelocityY"].asDouble()));
  EXPECT_EQ(sent["velocity"].asDouble(), static_cast<double>(-1e30F));
}

TEST_F(Operations, FailuresAreLoggedAndALaterSuccessClearsNoError) {
  connect();
  robot.on("getSystemStatus", transportFailure(1));
  EXPECT_FALSE(client->getSystemStatus(nullptr, 100));
  robot.on("getSystemStatus", refused(0x2f));
  EXPECT_FALSE(client->getSystemStatus(nullptr, 100));
  EXPECT_TRUE(client->getAudioPlayDetail(nullptr, 100));
  EXPECT_EQ(error(), 9U);
  EXPECT_THAT(
      logged(4),
      ElementsAre("high level rpc robotAppService::getSystemStatus failed: scripted time-out\n",
                  "high level rpc robotAppService::getSystemStatus rejected, errno=0x2f\n"));
}

TEST_F(Operations, BoardClientsAskTheBrainAndHaveNoMediaBusYet) {
  connect();
  EXPECT_EQ(client->createMediaBusClient(), nullptr);
  client = makeBoardHighLevelClient(true);
  EXPECT_EQ(client->createMediaBusClient(), nullptr);
  ASSERT_TRUE(client->connect(0));
  EXPECT_EQ(client->createMediaBusClient(), nullptr);
  EXPECT_THAT(
      logged(4),
      ElementsAre("high level createMediaBusClient only supported on local board deployment\n",
                  "high level createMediaBusClient failed: not connected\n"));
  EXPECT_THAT(log.texts(4, "ServiceAccess"),
              ElementsAre("media bus client is not enabled in this SDK build\n"));

  EXPECT_TRUE(client->getSystemStatus(nullptr, 70));
  const Request request = bus.requests().back();
  EXPECT_EQ(request.server + ' ' + request.service, "brainServer brainAppService");
  EXPECT_EQ(request.deviceId, "");
}

}  // namespace
