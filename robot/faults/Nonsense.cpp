#include "faults/Nonsense.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "pbase/Utils.h"

namespace orvane::robot {
namespace {

// First what bites soonest.
constexpr const char* kAnswers[] = {
    R"({"result":"true","params":7})",
    R"({"result":true,"params":{"controller":17,"leaseTimeout":"soon","posture":[],"motorNum":-3,
        "motors":{},"deviceNo":null}})",
    R"({"result":true,"params":[1,2]})",
    R"({"result":1e300})",
    R"({"result":null,"reason":{"why":[]}})",
    R"({"result":true,"params":{"controller":"","leaseTimeout":-1,"posture":{"a":[[]]},
        "motorNum":4294967296,"motors":[1,"two",null]}})",
    "{}",
    "[]",
    "\"yes\"",
    "null",
    "-7",
};

constexpr const char* kEvents[] = {
    R"({"controlled":"no","controller":42,"detail":"nothing"})",
    R"({"controlled":0,"controller":["x"],"detail":[1]})",
    R"({"controlled":{},"controller":null,"detail":{"type":7,"posture":[],"level":{}}})",
    R"({"detail":{"model":1,"version":{},"battery":"full"}})",
    "[true]",
    "12",
};

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNoFigures[] = {kNan, kInfinity, -kInfinity, std::numeric_limits<float>::max()};
constexpr std::int32_t kNoCounts[] = {-1, 17, std::numeric_limits<std::int32_t>::max(),
                                      std::numeric_limits<std::int32_t>::min()};

template <class Table>
auto pick(const Table& table, std::uint32_t turn) {
  return table[turn % std::size(table)];
}

Json::Value json(const char* text) {
  Json::Value value;
  static_cast<void>(Pexal::Utils::stringToJson(text, value));
  return value;
}

template <class Motion>
void spoilMotion(Motion& motion, std::uint32_t turn) {
  const float figure = pick(kNoFigures, turn);
  motion.motorNum = pick(kNoCounts, turn);
  motion.imu.temp = figure;
  motion.imu.accel = {0x7f, figure, figure, figure};
  motion.imu.quaternion = {0x7f, figure, figure, figure, figure};
  for (auto& motor : motion.motor) {
    motor.position = motor.velocity = motor.torque = figure;
    motor.enable = motor.online = 0xff;
  }
  motion.power.power = figure;
}

/// The figure that it took.
template <class Sensors>
float spoilSensors(Sensors& sensors, std::uint32_t turn) {
  const float figure = pick(kNoFigures, turn);
  sensors.odom.valid = 0xff;
  sensors.odom.yaw = sensors.odom.yawSpeed = figure;
  std::fill(std::begin(sensors.odom.position), std::end(sensors.odom.position), figure);
  std::fill(std::begin(sensors.odom.velocity), std::end(sensors.odom.velocity), figure);
  sensors.gps.valid = sensors.uwb.valid = 0xff;
  return figure;
}

}  // namespace

Json::Value nonsenseAnswer(std::uint32_t turn) {
  return json(pick(kAnswers, turn));
}

Json::Value nonsenseEvent(std::uint32_t turn, const Json::Value& deviceNo) {
  Json::Value payload = json(pick(kEvents, turn));
  if (payload.isObject()) payload["deviceNo"] = deviceNo;
  return payload;
}

void spoil(orvane::msg::dds_::MotionObserved_& sample, std::uint32_t turn) noexcept {
  spoilMotion(sample, turn);
  for (auto& motor : sample.motor) motor.header = {0xffffffffU, 0xffffffffU};
}

void spoil(RobotSdk::ObservedMotionRecord& record, std::uint32_t turn) noexcept {
  spoilMotion(record, turn);
  for (auto& motor : record.motor) motor.limbsNo = motor.jointNo = 0xffffU;
}

void spoil(orvane::msg::dds_::SensorObserved_& sample, std::uint32_t turn) noexcept {
  const float figure = spoilSensors(sample, turn);
  sample.gps.point = {figure, figure};
}

void spoil(RobotSdk::ObservedSensorRecord& record, std::uint32_t turn) noexcept {
  record.gps.lat = record.gps.lng = spoilSensors(record, turn);
}

void spoil(orvane::msg::dds_::RemoteControl_& sample, std::uint32_t turn) noexcept {
  const float figure = pick(kNoFigures, turn);
  sample.controller = sample.timestamp = UINT64_MAX;
  sample.back = sample.a = sample.up = sample.rs = 0xff;
  sample.stickLX = sample.stickLY = sample.stickRX = sample.stickRY = figure;
  sample.triggerL = sample.triggerR = figure;
}

}  // namespace orvane::robot
