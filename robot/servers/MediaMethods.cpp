// What the robot plays and shows besides moving, and how it is.

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "servers/Documents.h"
#include "servers/Methods.h"

namespace orvane::robot {
namespace {

constexpr std::size_t kLongestWord = 64;  // of names that the robot itself has given

/// The tracks of these names, or which one isn't there.
Checked<std::vector<Track>> tracksOf(const AudioFiles& files,
                                     const std::vector<std::string>& names) {
  std::vector<Track> tracks;
  for (const std::string& name : names) {
    const AudioFile* file = files.find(name);
    if (file == nullptr) return AudioFiles::unknown(name);
    tracks.push_back({file->name, file->lengthMs});
  }
  return tracks;
}

Answer startPlayList(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"files", "index", "positionMs", "loop", "volume"});
  const auto names = params.optionalTexts("files", PlayList::kMost, AudioFiles::kLongestName);
  const auto loop = params.optionalText("loop", kLongestWord);
  Player::Start start;
  start.index = params.optionalUnsigned("index");
  start.positionMs = params.optionalUnsigned("positionMs");
  start.volume = params.optionalUnsigned("volume");
  if (params.failure()) return *params.failure();
  if (loop) {
    start.loop = loopOf(*loop);
    if (!start.loop) return Refusal{Reason::kInvalid, "params: loop must be none, track or list"};
  }
  if (names) {
    auto tracks = tracksOf(call.robot.media().files, *names);
    if (auto* refusal = std::get_if<Refusal>(&tracks)) return std::move(*refusal);
    start.tracks = std::get<std::vector<Track>>(std::move(tracks));
  }
  return doneOr(call.robot.media().player.start(std::move(start)));
}

Answer stopPlayList(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"pause"});
  const bool pause = params.optionalBool("pause").value_or(false);
  if (params.failure()) return *params.failure();
  if (pause) return doneOr(call.robot.media().player.pause());
  call.robot.media().player.stop();
  return Json::Value();
}

Answer playDetail(const Call& call) {
  return playDetailDocument(call.robot.media().player);
}

Answer playList(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"contains", "format", "offset", "limit"});
  const auto contains = params.optionalText("contains", AudioFiles::kLongestName);
  const auto format = params.optionalText("format", kLongestWord);
  const std::uint64_t offset = params.optionalUnsigned("offset").value_or(0);
  const std::uint64_t limit = params.optionalUnsigned("limit").value_or(AudioFiles::kMost);
  if (params.failure()) return *params.failure();
  const AudioFiles& files = call.robot.media().files;
  Json::Value answer;
  Json::Value& list = answer["files"] = Json::Value(Json::arrayValue);
  std::uint64_t fitting = 0;
  for (const auto& [name, file] : files.all()) {
    if (contains && name.find(*contains) == std::string::npos) continue;
    if (format && file.format != *format) continue;
    if (fitting >= offset && list.size() < limit) list.append(audioFileDocument(file));
    ++fitting;
  }
  answer["total"] = Json::UInt64(fitting);
  answer["freeBytes"] = Json::UInt64(files.freeBytes());
  return answer;
}

Answer addAudioFile(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"name", "format", "lengthMs", "sizeBytes"});
  AudioFile file;
  file.name = params.text("name", AudioFiles::kLongestName);
  file.format = params.text("format", kLongestWord);
  file.lengthMs = params.unsigned64("lengthMs");
  file.sizeBytes = params.unsigned64("sizeBytes");
  if (params.failure()) return *params.failure();
  return doneOr(call.robot.media().files.add(std::move(file)));
}

Answer deleteAudioFile(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"name"});
  const std::string name = params.text("name", AudioFiles::kLongestName);
  if (params.failure()) return *params.failure();
  return doneOr(call.robot.media().remove(name));
}

Answer setCameraLight(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"brightness"});
  const std::uint64_t brightness = params.unsigned64("brightness");
  if (params.failure()) return *params.failure();
  return doneOr(call.robot.media().light.set(brightness));
}

Answer cameraLight(const Call& call) {
  Json::Value answer;
  answer["brightness"] = Json::UInt64(call.robot.media().light.brightness());
  return answer;
}

Answer systemStatus(const Call& call) {
  return systemStatusDocument(call.robot, call.self.deviceId, call.self.startedMs, call.host);
}

// Clients ask for the light only when they hold control; so it is here, too.
constexpr Method kMethods[] = {
    {"startPlayList", true, startPlayList},
    {"stopPlayList", true, stopPlayList},
    {"addAudioFile", true, addAudioFile},
    {"deleteAudioFile", true, deleteAudioFile},
    {"setCameraLightBrightness", true, setCameraLight},
    {"getCameraLightBrightness", true, cameraLight},
    {"getAudioPlayDetail", false, playDetail},
    {"getAudioPlayList", false, playList},
    {"getSystemStatus", false, systemStatus, true},
};

}  // namespace

const Method* findMediaMethod(const std::string& name) {
  return findIn(std::begin(kMethods), std::end(kMethods), name);
}

}  // namespace orvane::robot
