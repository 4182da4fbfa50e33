// The robot's media room: what is played and when, audio files, camera light, system status, on the
// virtual clock.

#include <sys/sysinfo.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>

#include "media/HostFigures.h"
#include "robot_support.h"

namespace orvane::robot {
namespace {

using Strings = std::vector<std::string>;

class RobotMedia : public RobotBench {
 protected:
  std::string answer(const std::string& method, const std::string& params = "") {
    return told(ask(method, holder_, params));
  }
  std::string play(const std::string& params = "") { return answer("startPlayList", params); }
  Json::Value document(const std::string& method, const std::string& params = "") {
    return ask(method, holder_, params).document["params"];
  }
  /// "stopped", or state, name, index and position.
  std::string playing() {
    const Json::Value detail = document("getAudioPlayDetail");
    std::string text = detail["state"].asString();
    if (!detail.isMember("name")) return text;
    return text + ' ' + detail["name"].asString() + ' ' + detail["index"].asString() + ' ' +
           detail["positionMs"].asString();
  }
  /// What was told of the play list, e.g. "trackEnded bark 0 800 finished", without what else.
  Strings heard() {
    Strings texts;
    while (const auto event = outbox_->take(0)) {
      const Json::Value& detail = event->payload["detail"];
      if (event->topic != ".host.event" || detail["type"] != Json::Value("audio")) continue;
      std::string text = detail["event"].asString();
      for (const char* member : {"name", "index", "positionMs", "reason"}) {
        if (detail.isMember(member)) text += ' ' + detail[member].asString();
      }
      texts.push_back(std::move(text));
    }
    return texts;
  }

  const std::string holder_ = take("app", 600000);
};

TEST_F(RobotMedia, tracksPlayInTimeAndAreTold) {
  EXPECT_EQ(playing(), "stopped");
  EXPECT_EQ(play(R"({"files":["bark","greeting"]})"), "ok");
  pass(798);
  EXPECT_EQ(playing(), "playing bark 0 798");
  EXPECT_EQ(heard(), (Strings{"trackStarted bark 0 0"}));
  pass(2);
  EXPECT_EQ(heard(), (Strings{"trackEnded bark 0 800 finished", "trackStarted greeting 1 0"}));
  pass(300);
  EXPECT_EQ(answer("stopPlayList", R"({"pause":true})"), "ok");
  EXPECT_EQ(answer("stopPlayList", R"({"pause":true})"), "ok");
  pass(5000);
  EXPECT_EQ(playing(), "paused greeting 1 300");
  EXPECT_EQ(play(), "ok");
  EXPECT_EQ(play(), "ok") << "it goes on";
  pass(2098);
  EXPECT_EQ(playing(), "playing greeting 1 2398");
  pass(2);
  EXPECT_EQ(heard(), (Strings{"paused greeting 1 300", "resumed greeting 1 300",
                              "trackEnded greeting 1 2400 finished", "listEnded finished"}));
  EXPECT_EQ(playing(), "stopped");
  EXPECT_EQ(play(), "refused 11") << "the list is gone";
  EXPECT_EQ(answer("stopPlayList", R"({"pause":true})"), "refused 11");
  EXPECT_EQ(answer("stopPlayList"), "ok");
  EXPECT_EQ(heard(), Strings{});
}

TEST_F(RobotMedia, theListIsSteeredWhileItPlays) {
  EXPECT_EQ(play(R"({"files":["bark","march","bark"],"index":2,"positionMs":500,"loop":"list"})"),
            "ok");
  pass(1000);
  EXPECT_EQ(playing(), "playing bark 0 700");
  EXPECT_EQ(play(R"({"loop":"track","volume":7})"), "ok");
  pass(1000);
  EXPECT_EQ(playing(), "playing bark 0 100") << "twice more";
  EXPECT_EQ(play(R"({"index":1,"positionMs":59000,"loop":"none"})"), "ok");
  pass(2000);
  EXPECT_EQ(playing(), "stopped") << "march, then bark, then the end was no loop's";
  EXPECT_EQ(document("getAudioPlayDetail")["volume"], Json::Value(7U)) << "it stays";
}

TEST_F(RobotMedia, aListEndsByItselfByAStopOrByAnother) {
  ASSERT_EQ(play(R"({"files":["bark"]})"), "ok");
  ASSERT_EQ(play(R"({"files":["march"],"loop":"list"})"), "ok");
  pass(100);
  ASSERT_EQ(answer("stopPlayList", R"({"pause":false})"), "ok");
  EXPECT_EQ(heard(), (Strings{"trackStarted bark 0 0", "trackEnded bark 0 0 replaced",
                              "listEnded replaced", "trackStarted march 0 0",
                              "trackEnded march 0 100 stopped", "listEnded stopped"}));
  EXPECT_EQ(document("getAudioPlayDetail")["loop"].asString(), "none");
}

TEST_F(RobotMedia, deletingAFileThatPlaysGoesOnWithTheNext) {
  struct Case {
    const char* start;
    const char* removed;
    const char* playing;
  };
  const Case kCases[] = {
      {R"({"files":["bark","x","march"],"index":1})", "x", "playing march 1 0"},
      {R"({"files":["x","bark","x","march"],"index":3})", "x", "playing march 1 100"},
      {R"({"files":["march","x"],"index":1})", "x", "stopped"},
      {R"({"files":["march","x"],"index":1,"loop":"list"})", "x", "playing march 0 0"},
      {R"({"files":["x","x"],"loop":"track"})", "x", "stopped"},
      {R"({"files":["march","x"]})", "x", "playing march 0 100"},
  };
  for (const Case& row : kCases) {
    for (const bool paused : {false, true}) {
      SCOPED_TRACE(std::string(row.start) + (paused ? " paused" : ""));
      ASSERT_EQ(
          answer("addAudioFile", R"({"name":"x","format":"mp3","lengthMs":5000,"sizeBytes":1})"),
          "ok");
      ASSERT_EQ(play(row.start), "ok");
      pass(100);
      if (paused) {
        ASSERT_EQ(answer("stopPlayList", R"({"pause":true})"), "ok");
      }
      EXPECT_EQ(answer("deleteAudioFile", std::string(R"({"name":")") + row.removed + "\"}"), "ok");
      std::string wanted = row.playing;
      if (paused && wanted != "stopped") wanted.replace(0, 7, "paused");
      EXPECT_EQ(playing(), wanted);
    }
  }
  EXPECT_EQ(play(R"({"files":["x"]})"), "refused 2");
}

/// Does one thing out of all that can be asked of a player.
void poke(Player& player, std::mt19937& chance) {
  const auto upTo = [&](std::uint32_t most) {
    return static_cast<std::uint32_t>(chance() % (most + 1));
  };
  const Track kTracks[] = {{"a", 100}, {"b", 137}, {"c", 900}};
  Player::Start start;
  switch (upTo(6)) {
    case 0:
      start.tracks.emplace();
      for (auto number = upTo(4); number > 0; --number) start.tracks->push_back(kTracks[upTo(2)]);
      start.loop = static_cast<Loop>(upTo(2));
      [[fallthrough]];
    case 1:
      start.index = upTo(4);
      start.positionMs = upTo(150);
      [[fallthrough]];
    case 2:
      static_cast<void>(player.start(std::move(start)));
      break;
    case 3:
      static_cast<void>(player.pause());
      break;
    case 4:
      if (upTo(2) == 0) player.stop();
      break;
    default:
      if (upTo(2) == 0) player.remove(kTracks[upTo(2)].name);
      break;
  }
}

TEST(Player, tracksAndListsBeginAndEndInTurnAndTakeTheirTimeWhateverIsAsked) {
  using Kind = PlayEvent::Kind;
  std::mt19937 chance(6);
  Player player;
  std::uint64_t playingMs = 0;  // how long it played
  std::uint64_t playedMs = 0;   // how far the tracks came
  std::optional<PlayEvent> track;
  bool inList = false;
  for (std::uint64_t nowMs = 1; nowMs < 200'000; ++nowMs) {
    if (player.state() == Player::State::kPlaying) ++playingMs;
    player.passTo(nowMs);
    if (chance() % 100 == 0) poke(player, chance);
    if (nowMs == 199'999) player.stop();
    for (const PlayEvent& event : player.takeEvents()) {
      switch (event.kind) {
        case Kind::kTrackStarted:
          ASSERT_FALSE(track);
          track = event;
          inList = true;
          break;
        case Kind::kTrackEnded:
          ASSERT_TRUE(track && track->name == event.name && event.why);
          playedMs += event.positionMs - track->positionMs;
          track.reset();
          break;
        case Kind::kListEnded:
          ASSERT_TRUE(inList && !track && event.why);
          inList = false;
          break;
        default:
          ASSERT_TRUE(track && track->name == event.name);
      }
    }
    ASSERT_EQ(player.list().empty(), player.state() == Player::State::kStopped);
    ASSERT_EQ(inList, player.state() != Player::State::kStopped);
    if (inList) {
      ASSERT_LT(player.positionMs(), player.list().present().lengthMs);
    }
  }
  EXPECT_EQ(playedMs, playingMs);
  EXPECT_GT(playingMs, 20'000U);
}

TEST(Player, doesNotMakeUpForTheTimeThatTheRobotStoodStill) {
  Player player;
  player.passTo(5000);
  Player::Start start;
  start.tracks = {{"a", 100}};
  start.loop = Loop::kList;
  ASSERT_FALSE(player.start(start));
  player.passTo(3'600'000);
  EXPECT_EQ(player.takeEvents().size(), 1 + 2 * Player::kLongestGapMs / 100);
}

TEST_F(RobotMedia, badDocumentsAreRefusedAndChangeNothing) {
  struct Case {
    const char* method;
    std::string params;
    const char* answer;
  };
  const auto add = [](const std::string& name, const char* format, const char* lengthMs,
                      const char* sizeBytes) {
    return R"({"name":")" + name + R"(","format":")" + format + R"(","lengthMs":)" + lengthMs +
           R"(,"sizeBytes":)" + sizeBytes + "}";
  };
  std::string manyFiles = R"({"files":["bark")";
  for (int i = 0; i < 64; ++i) manyFiles += R"(,"bark")";
  const std::string deep = R"({"files":)" + std::string(50, '[') + std::string(50, ']') + "}";
  const Case kCases[] = {
      {"startPlayList", R"({"files":[]})", "refused 34"},
      {"startPlayList", R"({"files":"bark"})", "refused 22"},
      {"startPlayList", R"({"files":["bark",7]})", "refused 22"},
      {"startPlayList", R"({"files":["bark",""]})", "refused 22"},
      {"startPlayList", R"({"files":["bark","../bark"]})", "refused 2"},
      {"startPlayList", R"({"files":["bark"],"index":1})", "refused 34"},
      {"startPlayList", R"({"files":["bark"],"positionMs":800})", "refused 34"},
      {"startPlayList", R"({"files":["bark"],"loop":"both"})", "refused 22"},
      {"startPlayList", R"({"volume":101})", "refused 34"},
      {"startPlayList", R"({"name":"bark"})", "refused 22"},
      {"startPlayList", manyFiles + "]}", "refused 22"},
      {"startPlayList", R"({"files":["bark",")" + std::string(1 << 20, 'x') + "\"]}", "refused 22"},
      {"startPlayList", deep, "refused 22"},
      {"stopPlayList", R"({"pause":1})", "refused 22"},
      {"stopPlayList", R"({"paused":true})", "refused 22"},
      {"addAudioFile", R"({"format":"wav","lengthMs":1000,"sizeBytes":1})", "refused 22"},
      {"addAudioFile", R"({"name":"a","format":"wav","lengthMs":1000})", "refused 22"},
      {"addAudioFile", add("a", "wav", "99", "1"), "refused 34"},
      {"addAudioFile", add("a", "wav", "3600001", "1"), "refused 34"},
      {"addAudioFile", add("a", "wav", "1000", "0"), "refused 34"},
      {"addAudioFile", add("a", "wav", "1000", "16777217"), "refused 34"},
      {"addAudioFile", add("a", "flac", "1000", "1"), "refused 38"},
      {"addAudioFile", add("bark", "wav", "1000", "1"), "refused 17"},
      {"addAudioFile", add(std::string(65, 'a'), "wav", "1000", "1"), "refused 22"},
      {"deleteAudioFile", "{}", "refused 22"},
      {"deleteAudioFile", R"({"name":["bark"]})", "refused 22"},
      {"deleteAudioFile", R"({"name":"bark.wav"})", "refused 2"},
      {"getAudioPlayList", R"({"format":7})", "refused 22"},
      {"setCameraLightBrightness", "{}", "refused 22"},
      {"setCameraLightBrightness", R"({"brightness":101})", "refused 34"},
      {"setCameraLightBrightness", R"({"brightness":true})", "refused 22"},
  };
  ASSERT_EQ(play(R"({"files":["march","bark"],"index":1,"loop":"track"})"), "ok");
  ASSERT_EQ(answer("setCameraLightBrightness", R"({"brightness":100})"), "ok");
  heard();
  const Json::Value detail = document("getAudioPlayDetail");
  const Json::Value files = document("getAudioPlayList");
  for (const Case& row : kCases) {
    EXPECT_EQ(answer(row.method, row.params), row.answer) << row.method << row.params.substr(0, 99);
  }
  for (const char* name :
       {"a/b", "..", ".a", "a.", " a", "a\\\\b", "a\\u0000b", "a\\nb", "\\u00e4"}) {
    EXPECT_EQ(answer("addAudioFile", add(name, "wav", "1000", "1")), "refused 22") << name;
  }
  for (const double figure :
       {std::nan(""), std::numeric_limits<double>::infinity(), 1e300, -1e300}) {
    Json::Value request = json(R"({"params":{"name":"a","format":"wav","sizeBytes":1}})");
    request["call"]["clientId"] = holder_;
    request["params"]["lengthMs"] = figure;
    EXPECT_EQ(told(send("addAudioFile", request)), "refused 22") << figure;
  }
  EXPECT_EQ(document("getAudioPlayDetail"), detail);
  EXPECT_EQ(document("getAudioPlayList"), files);
  EXPECT_EQ(document("getCameraLightBrightness")["brightness"], Json::Value(100U));
  EXPECT_EQ(heard(), Strings{});
}

TEST_F(RobotMedia, filesAreListedByNameAndFilterUntilThereIsNoRoom) {
  const auto listed = [&](const char* filter) {
    const Json::Value answer = document("getAudioPlayList", filter);
    std::string text = answer["total"].asString() + ':';
    for (const Json::Value& file : answer["files"]) text += ' ' + file["name"].asString();
    return text;
  };
  // How many can be added, all alike.
  const auto fill = [&](const std::string& sizeBytes) {
    for (int added = 0; added < 1000; ++added) {
      const std::string last = answer(
          "addAudioFile", R"({"name":"s)" + std::to_string(added) +
                              R"(","format":"mp3","lengthMs":1000,"sizeBytes":)" + sizeBytes + "}");
      if (last != "ok") return std::to_string(added) + ", then " + last;
    }
    return std::string("no end");
  };
  EXPECT_EQ(fill("16777216"), "3, then refused 28") << "64 MiB, and something was there before";
  EXPECT_EQ(listed("{}"), "6: bark greeting march s0 s1 s2");
  EXPECT_EQ(listed(R"({"format":"mp3","offset":1,"limit":1})"), "3: s1");
  EXPECT_EQ(listed(R"({"contains":"r","format":"wav"})"), "3: bark greeting march");
  EXPECT_EQ(listed(R"({"offset":4294967295,"limit":4294967295})"), "6:");
  for (const char* name : {"s0", "s1", "s2"}) {
    EXPECT_EQ(answer("deleteAudioFile", std::string(R"({"name":")") + name + "\"}"), "ok");
  }
  EXPECT_EQ(fill("1"), "125, then refused 28") << "and three that were there";
}

TEST_F(RobotMedia, statusTellsOfTheRobotAndOfTheComputer) {
  pass(1500);
  const Json::Value status = document("getSystemStatus");
  EXPECT_EQ(status["uptimeMs"].asUInt64(), 1500U);
  EXPECT_EQ(status["deviceNo"].asString(), "VR-7");
  {
    RobotCore::Access robot = core_->access();
    EXPECT_EQ(status["battery"]["chargePercent"].asDouble(), robot.body().battery.chargePercent);
    EXPECT_EQ(status["battery"]["temperature"].asDouble(), robot.body().battery.temperature);
    ASSERT_EQ(status["motors"]["temperatures"].size(), kJoints);
    EXPECT_EQ(status["motors"]["temperatures"][11].asDouble(), robot.body().joints[11].temperature);
    EXPECT_GE(status["motors"]["maxTemperature"].asDouble(), robot.body().joints[0].temperature);
  }
  struct sysinfo machine {};
  ASSERT_EQ(::sysinfo(&machine), 0);
  const double bytes = static_cast<double>(machine.totalram) * machine.mem_unit;
  EXPECT_NEAR(status["memory"]["totalBytes"].asDouble(), bytes, 0.01 * bytes);
  EXPECT_GT(status["memory"]["usedPercent"].asDouble(), 0);
  EXPECT_LT(status["memory"]["usedPercent"].asDouble(), 100);
  ASSERT_EQ(status["processor"]["loadAverage"].size(), 3U);
  EXPECT_NEAR(status["processor"]["loadAverage"][2].asDouble(),
              static_cast<double>(machine.loads[2]) / (1 << SI_LOAD_SHIFT), 1);
  EXPECT_EQ(status["versions"]["system"].asString().rfind("Linux ", 0), 0U);
}

TEST(HostFigures, areLeftOutWhereTheyCannotBeUnderstood) {
  namespace fs = std::filesystem;
  const fs::path root = fs::path(testing::TempDir()) / "figures";
  const auto write = [&](const std::string& path, const std::string& text) {
    fs::create_directories((root / path).parent_path());
    std::ofstream(root / path) << text;
  };
  for (const char* text : {"", "nan nan nan", "1 2", "-1 0 0", "a b c", "1e999 1 1"}) {
    write("proc/loadavg", text);
    EXPECT_FALSE(readHostFigures(root).loadAverage) << text;
  }
  for (const char* text : {"MemTotal: 0 kB\nMemAvailable: 0 kB", "MemTotal: 5 kB",
                           "MemTotal: -5 kB\nMemAvailable: 1 kB",
                           "MemTotal: 99999999999999999999 kB\nMemAvailable: 1 kB"}) {
    write("proc/meminfo", text);
    EXPECT_FALSE(readHostFigures(root).memory) << text;
  }
  write("sys/class/thermal/thermal_zone0/type", "acpitz\n");
  write("sys/class/thermal/thermal_zone0/temp", "90000\n");
  write("sys/class/thermal/thermal_zone1/type", "cpu-thermal\n");
  write("sys/class/thermal/thermal_zone1/temp", "-274000\n");
  EXPECT_FALSE(readHostFigures(root).processorTemperature);
  write("sys/class/thermal/thermal_zone1/temp", "47000\n");
  EXPECT_EQ(readHostFigures(root).processorTemperature, 47.0) << "not the hotter one beside it";
  fs::remove_all(root);
}

}  // namespace
}  // namespace orvane::robot
