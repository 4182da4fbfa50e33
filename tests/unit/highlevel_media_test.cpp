// The media and system requests, one row each.

#include <functional>

#include "scripted/ClientHarness.h"

namespace {

using namespace scripted;
using orvane::RobotSdk::IMotionHighLevelClient;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Client = IMotionHighLevelClient&;
using Text = const std::string&;

constexpr bool kControl = true;
constexpr bool kConnection = false;

struct Row {
  const char* operation;
  bool needsControl;
  const char* method;
  Json::Value params;  ///< of operations without a text
  bool takesText;
  bool givesText;
  std::function<bool(Client, Text json, std::string* out)> call;
};

const std::vector<Row>& rows() {
  static const Json::Value none;
  static const std::vector<Row> all = {
      {"startPlayList", kControl, "startPlayList", none, true, false,
       [](Client c, Text json, auto*) { return c.startPlayList(json, 70); }},
      {"stopPlayList", kControl, "stopPlayList", none, false, false,
       [](Client c, Text, auto*) { return c.stopPlayList(70); }},
      {"pausePlayList", kControl, "stopPlayList", object({{"pause", true}}), false, false,
       [](Client c, Text, auto*) { return c.pausePlayList(70); }},
      {"addAudioFile", kControl, "addAudioFile", none, true, false,
       [](Client c, Text json, auto*) { return c.addAudioFile(json, 70); }},
      {"deleteAudioFile", kControl, "deleteAudioFile", none, true, false,
       [](Client c, Text json, auto*) { return c.deleteAudioFile(json, 70); }},
      {"setCameraLightBrightness", kControl, "setCameraLightBrightness",
       object({{"brightness", 4000000000U}}), false, false,
       [](Client c, Text, auto*) { return c.setCameraLightBrightness(4000000000U, 70); }},
      {"getCameraLightBrightness", kControl, "getCameraLightBrightness", none, false, true,
       [](Client c, Text, auto* out) { return c.getCameraLightBrightness(out, 70); }},
      {"getSystemStatus", kConnection, "getSystemStatus", none, false, true,
       [](Client c, Text, auto* out) { return c.getSystemStatus(out, 70); }},
      {"getAudioPlayDetail", kConnection, "getAudioPlayDetail", none, false, true,
       [](Client c, Text, auto* out) { return c.getAudioPlayDetail(out, 70); }},
      {"getAudioPlayList", kConnection, "getAudioPlayList", none, true, true,
       [](Client c, Text json, auto* out) { return c.getAudioPlayList(json, out, 70); }},
  };
  return all;
}

class Media : public ClientTest {};

TEST_F(Media, GatesComeFirst) {
  for (const bool connected : {false, true}) {
    if (connected) connect();
    for (const Row& row : rows()) {
      SCOPED_TRACE(row.operation);
      const bool open = connected && !row.needsControl;
      bus.forgetRequests();
      EXPECT_EQ(row.call(*client, "", nullptr), open);
      EXPECT_EQ(client->getLastError(), open ? 0U : row.needsControl ? 7U : 6U);
      EXPECT_THAT(bus.requests(), SizeIs(open ? 1 : 0));
      if (open || !row.takesText) continue;
      EXPECT_FALSE(row.call(*client, "not json", nullptr));
      EXPECT_EQ(client->getLastError(), row.needsControl ? 7U : 6U);
    }
  }
}

TEST_F(Media, RequestsAndResults) {
  const Json::Value given = object({{"name", "song"}, {"list", 3}});
  const Json::Value answer = object({{"answer", "yes"}});
  const Json::Value none;
  hold();
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.operation);
    bus.forgetRequests();
    std::string out = "old";
    robot.on(row.method, accepted(answer));
    EXPECT_TRUE(row.call(*client, R"({"name": "song", "list": 3})", &out));
    EXPECT_EQ(out, row.givesText ? R"({"answer":"yes"})" : "old");
    ASSERT_THAT(bus.requests(), SizeIs(1));
    const Request request = bus.requests()[0];
    EXPECT_EQ(request.method, row.method);
    EXPECT_EQ(request.server, kServer);
    EXPECT_EQ(request.service, "robotAppService");
    EXPECT_EQ(request.deviceId, "dog-7");
    EXPECT_EQ(request.timeoutMs, 70U);
    EXPECT_EQ(request.document["call"], object({{"clientId", "controller-1"}}));
    EXPECT_EQ(text(request.document["params"]), text(row.takesText ? given : row.params));
    EXPECT_TRUE(row.call(*client, "", nullptr)) << "nobody wants the result";
    EXPECT_EQ(bus.requests()[1].document.isMember("params"), !row.params.isNull());

    robot.on(row.method, accepted());
    EXPECT_TRUE(row.call(*client, "", &out));
    EXPECT_EQ(out, row.givesText ? "null" : "old");
    robot.on(row.method, refused(0, answer));
    EXPECT_FALSE(row.call(*client, "", &out));
    EXPECT_EQ(out, row.givesText ? "null" : "old") << "written on success only";
    EXPECT_EQ(client->getLastError(), 9U);
    robot.on(row.method, transportFailure(1));
    EXPECT_FALSE(row.call(*client, "", &out));
    EXPECT_EQ(client->getLastError(), 3U);

    bus.forgetRequests();
    if (!row.takesText) continue;
    for (const char* bad : {"not json", "{", "{\"a\":1} x"}) {
      EXPECT_FALSE(row.call(*client, bad, &out));
      EXPECT_EQ(client->getLastError(), 9U);
    }
    EXPECT_THAT(bus.requests(), IsEmpty());
  }
}

TEST_F(Media, MediaBusClientIsForConnectedBoardClientsAndDisabled) {
  connect();
  EXPECT_EQ(client->createMediaBusClient(), nullptr);
  client = orvane::RobotSdk::makeBoardHighLevelClient(true);
  EXPECT_EQ(client->createMediaBusClient(), nullptr);
  ASSERT_TRUE(client->connect(0));
  EXPECT_EQ(client->createMediaBusClient(), nullptr);
  EXPECT_THAT(
      log.client(4),
      ElementsAre("high level createMediaBusClient only supported on local board deployment\n",
                  "high level createMediaBusClient failed: not connected\n"));
  EXPECT_THAT(log.texts(4, "ServiceAccess"),
              ElementsAre("media bus client is not enabled in this SDK build\n"));
}

TEST_F(Media, BoardClientAsksTheBrain) {
  client = orvane::RobotSdk::makeBoardHighLevelClient(true);
  ASSERT_TRUE(client->connect(0));
  EXPECT_TRUE(client->getSystemStatus(nullptr, 70));
  const Request request = bus.requests("getSystemStatus").at(0);
  EXPECT_EQ(request.server, "brainServer");
  EXPECT_EQ(request.service, "brainAppService");
  EXPECT_EQ(request.deviceId, "");
}

}  // namespace
