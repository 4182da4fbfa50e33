#include "servers/Documents.h"

#include <algorithm>
#include <array>

#include "body/LegKinematics.h"
#include "servers/Actions.h"

namespace orvane::robot {
namespace {

constexpr std::array<const char*, kLegs> kLegNames{"FL", "FR", "RL", "RR"};
constexpr std::array<const char*, kJointsPerLeg> kJointNames{"hip", "thigh", "calf"};

Json::Value rangeDocument(const Range& range, const char* unit) {
  Json::Value document;
  document["min"] = range.lower;
  document["max"] = range.upper;
  document["unit"] = unit;
  return document;
}

Json::Value twistDocument(const Twist& twist) {
  Json::Value document;
  document["lineVelocityX"] = twist.x;
  document["lineVelocityY"] = twist.y;
  document["velocity"] = twist.yaw;
  return document;
}

Json::Value controlDocument(RobotCore::Access& robot) {
  Json::Value document;
  const auto& grant = robot.arbiter().current();
  document["controlled"] = grant.has_value();
  document["master"] = robot.masterRole();
  if (!grant) return document;
  document["controller"] = grant->controller;
  document["holder"] = grant->holder;
  document["leaseTimeout"] = grant->leaseMs;
  document["sinceMs"] = Json::UInt64(grant->sinceMs);
  document["untilMs"] = Json::UInt64(grant->untilMs);
  document["remainingMs"] = Json::UInt64(grant->untilMs - robot.nowMs());
  return document;
}

Json::Value refusalDocument(const RefusedRequest& refused) {
  Json::Value document;
  if (refused.method.empty()) return document;
  document["method"] = refused.method;
  document["clientId"] = refused.clientId;
  document["reason"] = refused.refusal.text;
  document["errno"] = static_cast<Json::UInt>(refused.refusal.reason);
  document["atMs"] = Json::UInt64(refused.atMs);
  return document;
}

Json::Value batteryDocument(const BatteryState& battery) {
  Json::Value document;
  document["chargePercent"] = battery.chargePercent;
  document["healthPercent"] = battery.healthPercent;
  document["voltage"] = battery.voltage;
  document["current"] = battery.current;
  document["temperature"] = battery.temperature;
  return document;
}

}  // namespace

Json::Value motorLayoutDocument() {
  Json::Value document;
  document["motorNum"] = static_cast<Json::UInt>(kJoints);
  Json::Value& motors = document["motors"] = Json::Value(Json::arrayValue);
  for (std::size_t motor = 0; motor < kJoints; ++motor) {
    const std::size_t leg = motor / kJointsPerLeg;
    const std::size_t joint = motor % kJointsPerLeg;
    Json::Value entry;
    entry["limbNo"] = static_cast<Json::UInt>(leg);
    entry["jointNo"] = static_cast<Json::UInt>(joint);
    entry["name"] = std::string(kLegNames[leg]) + "_" + kJointNames[joint];
    motors.append(std::move(entry));
  }
  return document;
}

Json::Value capabilitiesDocument() {
  Json::Value document;
  document["model"] = kModel;
  document["version"] = kVersion;
  for (const ActionName& row : kActionNames) document["actions"].append(row.name);
  Json::Value& walking = document["walking"];
  walking["lineVelocityX"] = rangeDocument(kForwardSpeed, "m/s");
  walking["lineVelocityY"] = rangeDocument(kSidewaysSpeed, "m/s");
  walking["velocity"] = rangeDocument(kYawSpeed, "rad/s");
  walking["refreshMs"] = kWalkRefreshMs;
  Json::Value& params = document["actionParams"];
  params["bodyHeight"] = rangeDocument(kBodyHeight, "m");
  params["stepHeight"] = rangeDocument(kStepHeight, "m");
  Json::Value& lease = document["lease"];
  lease["minMs"] = Arbiter::kMinLeaseMs;
  lease["maxMs"] = Arbiter::kMaxLeaseMs;
  lease["defaultMs"] = Arbiter::kDefaultLeaseMs;
  return document;
}

Json::Value motionStateDocument(RobotCore::Access& robot, const std::string& deviceId) {
  Json::Value document;
  document["deviceNo"] = deviceId;
  document["timeMs"] = Json::UInt64(robot.nowMs());
  document["posture"] = nameOf(robot.motion().posture());
  document["emergencyStop"] = robot.motion().emergencyStopped();
  document["bodyHeight"] = robot.body().height;
  document["velocity"] = twistDocument(robot.body().velocity);
  document["command"] = twistDocument(robot.motion().commanded());
  Json::Value& odometry = document["odometry"];
  odometry["x"] = robot.body().position[0];
  odometry["y"] = robot.body().position[1];
  odometry["yaw"] = robot.body().yaw;
  Json::Value& params = document["actionParams"];
  params["bodyHeight"] = robot.motion().bodyHeight();
  params["stepHeight"] = robot.motion().stepHeight();
  document["control"] = controlDocument(robot);
  document["lastRefusal"] = refusalDocument(robot.lastRefusal());
  return document;
}

Json::Value systemStatusDocument(RobotCore::Access& robot, const std::string& deviceId,
                                 std::uint64_t startedMs) {
  Json::Value document;
  document["deviceNo"] = deviceId;
  document["model"] = kModel;
  document["version"] = kVersion;
  document["uptimeMs"] = Json::UInt64(robot.nowMs() - startedMs);
  document["battery"] = batteryDocument(robot.body().battery);
  double hottest = 0;
  for (const JointState& joint : robot.body().joints) {
    hottest = std::max(hottest, joint.temperature);
  }
  document["motors"]["maxTemperature"] = hottest;
  return document;
}

Json::Value discoveryDocument(RobotCore::Access& robot) {
  Json::Value document;
  document["model"] = kModel;
  document["version"] = kVersion;
  document["posture"] = nameOf(robot.motion().posture());
  document["controlled"] = robot.arbiter().current().has_value();
  document["battery"] = batteryDocument(robot.body().battery);
  return document;
}

}  // namespace orvane::robot
