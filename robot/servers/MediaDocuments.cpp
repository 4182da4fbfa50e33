// The documents that tell of media and of the system.

#include <algorithm>

#include "servers/Documents.h"

namespace orvane::robot {
namespace {

using Key = Json::StaticString;  // kept by reference: members of these names cost no copy

Json::Value motorsDocument(const BodyState& body) {
  Json::Value document;
  double hottest = 0;
  Json::Value& temperatures = document[Key("temperatures")];
  for (const JointState& joint : body.joints) {
    hottest = std::max(hottest, joint.temperature);
    temperatures.append(joint.temperature);
  }
  document[Key("maxTemperature")] = hottest;
  return document;
}

Json::Value processorDocument(const HostFigures& host) {
  Json::Value document;
  document[Key("count")] = host.processors;
  if (host.loadAverage) {
    for (const double average : *host.loadAverage) document[Key("loadAverage")].append(average);
  }
  if (host.processorTemperature) document[Key("temperature")] = *host.processorTemperature;
  return document;
}

Json::Value memoryDocument(const HostFigures::Memory& memory) {
  Json::Value document;
  document[Key("totalBytes")] = Json::UInt64(memory.totalBytes);
  document[Key("availableBytes")] = Json::UInt64(memory.availableBytes);
  document[Key("usedPercent")] = 100.0 *
                                 static_cast<double>(memory.totalBytes - memory.availableBytes) /
                                 static_cast<double>(memory.totalBytes);
  return document;
}

Json::Value versionsDocument(RobotCore::Access& robot, const HostFigures& host) {
  Json::Value document;
  document[Key("robot")] = robot.version();
  if (!host.system.empty()) document[Key("system")] = host.system;
  if (!host.board.empty()) document[Key("board")] = host.board;
  return document;
}

}  // namespace

Json::Value systemStatusDocument(RobotCore::Access& robot, const std::string& deviceId,
                                 std::uint64_t startedMs, const HostFigures& host) {
  Json::Value document;
  document[Key("deviceNo")] = deviceId;
  document[Key("model")] = kModel;
  document[Key("version")] = robot.version();
  document[Key("uptimeMs")] = Json::UInt64(robot.nowMs() - startedMs);
  document[Key("battery")] = batteryDocument(robot.body().battery);
  document[Key("motors")] = motorsDocument(robot.body());
  document[Key("imu")][Key("temperature")] = robot.body().imu.temperature;
  document[Key("processor")] = processorDocument(host);
  if (host.memory) document[Key("memory")] = memoryDocument(*host.memory);
  document[Key("versions")] = versionsDocument(robot, host);
  return document;
}

Json::Value playDetailDocument(const Player& player) {
  Json::Value document;
  document[Key("state")] = nameOf(player.state());
  document[Key("volume")] = player.volume();
  document[Key("loop")] = nameOf(player.loop());
  Json::Value& files = document[Key("files")] = Json::Value(Json::arrayValue);
  for (const Track& track : player.list().tracks()) files.append(track.name);
  if (player.list().empty()) return document;
  const Track& present = player.list().present();
  document[Key("index")] = Json::UInt64(player.list().index());
  document[Key("name")] = present.name;
  document[Key("positionMs")] = Json::UInt64(player.positionMs());
  document[Key("lengthMs")] = Json::UInt64(present.lengthMs);
  return document;
}

Json::Value audioFileDocument(const AudioFile& file) {
  Json::Value document;
  document[Key("name")] = file.name;
  document[Key("format")] = file.format;
  document[Key("lengthMs")] = Json::UInt64(file.lengthMs);
  document[Key("sizeBytes")] = Json::UInt64(file.sizeBytes);
  return document;
}

}  // namespace orvane::robot
