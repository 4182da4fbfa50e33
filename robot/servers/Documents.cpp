#include "servers/Documents.h"

#include <array>

#include "body/LegKinematics.h"
#include "servers/Actions.h"

namespace orvane::robot {
namespace {

using Key = Json::StaticString;  // kept by reference: members of these names cost no copy

constexpr std::array<const char*, kLegs> kLegNames{"FL", "FR", "RL", "RR"};
constexpr std::array<const char*, kJointsPerLeg> kJointNames{"hip", "thigh", "calf"};

Json::Value rangeDocument(const Range& range, const char* unit) {
  Json::Value document;
  document[Key("min")] = range.lower;
  document[Key("max")] = range.upper;
  document[Key("unit")] = unit;
  return document;
}

Json::Value twistDocument(const Twist& twist) {
  Json::Value document;
  document[Key("lineVelocityX")] = twist.x;
  document[Key("lineVelocityY")] = twist.y;
  document[Key("velocity")] = twist.yaw;
  return document;
}

Json::Value controlDocument(RobotCore::Access& robot) {
  Json::Value document;
  const auto& grant = robot.arbiter().current();
  document[Key("controlled")] = grant.has_value();
  document[Key("master")] = robot.masterRole();
  if (!grant) return document;
  document[Key("controller")] = grant->controller;
  document[Key("holder")] = grant->holder;
  document[Key("leaseTimeout")] = grant->leaseMs;
  document[Key("sinceMs")] = Json::UInt64(grant->sinceMs);
  document[Key("untilMs")] = Json::UInt64(grant->untilMs);
  document[Key("remainingMs")] = Json::UInt64(grant->untilMs - robot.nowMs());
  return document;
}

Json::Value sessionDocument(RobotCore::Access& robot) {
  Json::Value document;
  const auto& session = robot.session().current();
  document[Key("active")] = session.has_value();
  if (session) {
    document[Key("holder")] = session->holder;
    document[Key("observedHz")] = session->observedHz;
    document[Key("leaseTimeout")] = session->leaseMs;
    document[Key("remainingMs")] = Json::UInt64(session->untilMs - robot.nowMs());
  }
  document[Key("motors")] = nameOf(robot.motors().mode());
  const RecordCounts& counts = robot.motors().counts();
  document[Key("commands")] = Json::UInt64(counts.commands);
  document[Key("refused")] = Json::UInt64(counts.refused);
  document[Key("lost")] = Json::UInt64(counts.lost);
  document[Key("lastRefusal")] = textOf(counts.lastRefusal);
  return document;
}

Json::Value simulationDocument(const WriterHold& hold) {
  Json::Value document;
  document[Key("active")] = hold.held();
  document[Key("commands")] = Json::UInt64(hold.counts().commands);
  document[Key("refused")] = Json::UInt64(hold.counts().refused);
  document[Key("lastRefusal")] = textOf(hold.counts().lastRefusal);
  return document;
}

Json::Value refusalDocument(const RefusedRequest& refused) {
  Json::Value document;
  if (refused.method.empty()) return document;
  document[Key("method")] = refused.method;
  document[Key("clientId")] = refused.clientId;
  document[Key("reason")] = refused.refusal.text;
  document[Key("errno")] = static_cast<Json::UInt>(refused.refusal.reason);
  document[Key("atMs")] = Json::UInt64(refused.atMs);
  return document;
}

}  // namespace

Json::Value batteryDocument(const BatteryState& battery) {
  Json::Value document;
  document[Key("chargePercent")] = battery.chargePercent;
  document[Key("healthPercent")] = battery.healthPercent;
  document[Key("voltage")] = battery.voltage;
  document[Key("current")] = battery.current;
  document[Key("temperature")] = battery.temperature;
  return document;
}

Json::Value motorLayoutDocument() {
  Json::Value document;
  document[Key("motorNum")] = static_cast<Json::UInt>(kJoints);
  Json::Value& motors = document[Key("motors")] = Json::Value(Json::arrayValue);
  for (std::size_t motor = 0; motor < kJoints; ++motor) {
    const std::size_t leg = motor / kJointsPerLeg;
    const std::size_t joint = motor % kJointsPerLeg;
    Json::Value entry;
    entry[Key("limbNo")] = static_cast<Json::UInt>(leg);
    entry[Key("jointNo")] = static_cast<Json::UInt>(joint);
    entry[Key("name")] = std::string(kLegNames[leg]) + "_" + kJointNames[joint];
    motors.append(std::move(entry));
  }
  return document;
}

Json::Value capabilitiesDocument(RobotCore::Access& robot) {
  Json::Value document;
  document[Key("model")] = kModel;
  document[Key("version")] = robot.version();
  for (const ActionName& row : kActionNames) document[Key("actions")].append(row.name);
  Json::Value& walking = document[Key("walking")];
  walking[Key("lineVelocityX")] = rangeDocument(kForwardSpeed, "m/s");
  walking[Key("lineVelocityY")] = rangeDocument(kSidewaysSpeed, "m/s");
  walking[Key("velocity")] = rangeDocument(kYawSpeed, "rad/s");
  walking[Key("refreshMs")] = kWalkRefreshMs;
  Json::Value& params = document[Key("actionParams")];
  params[Key("bodyHeight")] = rangeDocument(kBodyHeight, "m");
  params[Key("stepHeight")] = rangeDocument(kStepHeight, "m");
  Json::Value& lease = document[Key("lease")];
  lease[Key("minMs")] = Arbiter::kMinLeaseMs;
  lease[Key("maxMs")] = Arbiter::kMaxLeaseMs;
  lease[Key("defaultMs")] = Arbiter::kDefaultLeaseMs;
  return document;
}

Json::Value motionStateDocument(RobotCore::Access& robot, const std::string& deviceId) {
  Json::Value document;
  document[Key("deviceNo")] = deviceId;
  document[Key("timeMs")] = Json::UInt64(robot.nowMs());
  document[Key("posture")] = nameOf(robot.motion().posture());
  document[Key("emergencyStop")] = robot.motion().emergencyStopped();
  document[Key("bodyHeight")] = robot.body().height;
  document[Key("velocity")] = twistDocument(robot.body().velocity);
  document[Key("command")] = twistDocument(robot.motion().commanded());
  Json::Value& odometry = document[Key("odometry")];
  odometry[Key("x")] = robot.body().position[0];
  odometry[Key("y")] = robot.body().position[1];
  odometry[Key("yaw")] = robot.body().yaw;
  Json::Value& params = document[Key("actionParams")];
  params[Key("bodyHeight")] = robot.motion().bodyHeight();
  params[Key("stepHeight")] = robot.motion().stepHeight();
  document[Key("control")] = controlDocument(robot);
  document[Key("lowLevel")] = sessionDocument(robot);
  document[Key("simulation")] = simulationDocument(robot.hold());
  document[Key("lastRefusal")] = refusalDocument(robot.lastRefusal());
  return document;
}

Json::Value discoveryDocument(RobotCore::Access& robot) {
  Json::Value document;
  document[Key("model")] = kModel;
  document[Key("version")] = robot.version();
  document[Key("posture")] = nameOf(robot.motion().posture());
  document[Key("controlled")] = robot.arbiter().current().has_value();
  document[Key("battery")] = batteryDocument(robot.body().battery);
  return document;
}

}  // namespace orvane::robot
