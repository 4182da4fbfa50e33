#include "terminal/WatchLines.h"

#include <cmath>

#include "core/Documents.h"
#include "core/Text.h"
#include "terminal/Gauges.h"

namespace robotctl {
namespace {

/// JSON has no NaN and no infinity: they become null.
Json::Value number(double value) {
  return std::isfinite(value) ? Json::Value(value) : Json::Value();
}

Json::Value vector(const orvane::RobotSdk::ObservedVector3& value) {
  Json::Value document;
  document["x"] = number(value.x);
  document["y"] = number(value.y);
  document["z"] = number(value.z);
  return document;
}

Json::Value age(std::uint64_t atMs, std::uint64_t nowMs) {
  return atMs == 0 || atMs > nowMs ? Json::Value() : Json::Value(Json::UInt64(nowMs - atMs));
}

Json::Value joints(const RobotModel& model) {
  Json::Value list(Json::arrayValue);
  for (std::size_t i = 0; i < model.motorCount(); ++i) {
    const orvane::RobotSdk::ObservedMotor motor = model.motion->motor[i];
    Json::Value joint;
    joint["name"] = model.jointName(i);
    joint["position"] = number(motor.position);
    joint["velocity"] = number(motor.velocity);
    joint["torque"] = number(motor.torque);
    joint["temperature"] = number(motor.temp);
    joint["enabled"] = motor.enable != 0;
    joint["online"] = motor.online != 0;
    joint["error"] = motor.error;
    list.append(std::move(joint));
  }
  return list;
}

Json::Value battery(const orvane::RobotSdk::ObservedPower& power) {
  Json::Value document;
  document["chargePercent"] = number(power.power);
  document["healthPercent"] = number(power.health);
  document["voltage"] = number(power.chargeVoltage);
  document["current"] = number(power.chargeCurrent);
  document["temperature"] = number(power.temper);
  return document;
}

Json::Value odometry(const orvane::RobotSdk::ObservedOdometry& observed) {
  Json::Value document;
  document["valid"] = observed.valid != 0;
  document["epoch"] = observed.epoch;
  for (const float metres : observed.position) document["position"].append(number(metres));
  for (const float speed : observed.velocity) document["velocity"].append(number(speed));
  document["yaw"] = number(observed.yaw);
  document["yawSpeed"] = number(observed.yawSpeed);
  return document;
}

/// A figure in a line, where there are no columns to keep.
std::string plain(double value, int width, int decimals, bool sign = true) {
  const std::string text = figure(value, width, decimals, sign);
  return text.substr(text.find_first_not_of(' '));
}

}  // namespace

std::string watchLine(const RobotModel& model) {
  if (model.silent() || !model.answers) return model.clock + "  " + linkText(model);
  const std::string posture = textAt(model.state, "posture");
  const std::string holder = describeHolder(model.state);
  std::string line = model.clock + "  " + (posture.empty() ? "unknown" : posture) +
                     (flagAt(model.state, "emergencyStop") ? " (emergency stop)" : "");
  line += "  control: " + (holder.empty() ? "nobody" : holder);
  if (model.sensor && model.sensor->odom.valid != 0) {
    const orvane::RobotSdk::ObservedOdometry& odometry = model.sensor->odom;
    line += "  x " + plain(odometry.position[0], 8, 2) + " y " + plain(odometry.position[1], 8, 2) +
            " m yaw " + plain(odometry.yaw, 5, 2) + " rad";
  }
  if (model.motion) line += "  battery " + plain(model.motion->power.power, 3, 0, false) + " %";
  const std::string commands = describeMotorCommands(model.state);
  if (!commands.empty()) line += "  motor commands: " + commands;
  return line + "  " + linkText(model);
}

Json::Value watchDocument(const RobotModel& model, std::uint64_t after) {
  Json::Value document;
  document["time"] = model.clock;
  document["robot"] = model.name;
  document["answers"] = model.answers && !model.silent();
  document["state"] = model.state;
  document["ageMs"]["state"] = age(model.stateMs, model.nowMs);
  document["ageMs"]["motion"] = age(model.motionMs, model.nowMs);
  document["ageMs"]["sensor"] = age(model.sensorMs, model.nowMs);
  document["ratesHz"]["motion"] = number(model.motionHz);
  document["ratesHz"]["sensor"] = number(model.sensorHz);
  if (model.motion) {
    const orvane::RobotSdk::ObservedImu imu = model.motion->imu;
    document["imu"]["euler"] = vector(imu.euler);
    document["imu"]["gyro"] = vector(imu.gyro);
    document["imu"]["acceleration"] = vector(imu.accel);
    document["battery"] = battery(model.motion->power);
    document["joints"] = joints(model);
  }
  if (model.sensor) document["odometry"] = odometry(model.sensor->odom);
  document["events"] = Json::Value(Json::arrayValue);
  for (const Happening& one : model.happenings) {
    if (one.number <= after) continue;
    Json::Value event;
    event["time"] = one.clock;
    event["topic"] = one.topic;
    event["text"] = one.text;
    document["events"].append(std::move(event));
  }
  return document;
}

}  // namespace robotctl
