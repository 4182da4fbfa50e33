#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "log/Log.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr char kUnit[] = "MotorLayoutParser";

/// A member that is no unsigned number (negative, a fraction, text, missing) reads as 0, like a
/// missing one; so does a number beyond 16 bits, which would name another limb or joint when cut.
std::uint16_t numberOf(const Json::Value& entry, const char* member) {
  const Json::Value& value = entry[member];
  if (!value.isUInt() || value.asUInt() > std::numeric_limits<std::uint16_t>::max()) return 0;
  return static_cast<std::uint16_t>(value.asUInt());
}

/// An entry that is no object has no members: it stays zero.
void fillEntry(const Json::Value& entry, MotorLayoutEntry& out) {
  if (!entry.isObject()) return;
  out.limbNo = numberOf(entry, "limbNo");
  out.jointNo = numberOf(entry, "jointNo");
  const Json::Value& name = entry["name"];
  if (!name.isString()) return;
  const std::string text = name.asString();
  std::strncpy(out.name, text.c_str(), sizeof out.name - 1);  // the record was zeroed: terminated
}

}  // namespace

bool parseMotorLayout(const Json::Value& document, MotorLayout& out) {
  if (!document.isObject() || !document.isMember("motorNum") || !document["motors"].isArray()) {
    return false;
  }
  // A "motorNum" that is no unsigned number counts as the largest one: it never fits.
  const Json::Value& number = document["motorNum"];
  const std::uint32_t motorNum =
      number.isUInt() ? number.asUInt() : std::numeric_limits<std::uint32_t>::max();
  const Json::Value& motors = document["motors"];
  if (motorNum > kMaxMotors || motorNum != motors.size()) {
    MOTION_LOG(kUnit, level::kWarning,
               " motor layout schema mismatch: motorNum=%u motors.size=%zu max=%u", motorNum,
               static_cast<std::size_t>(motors.size()), kMaxMotors);
    return false;
  }
  MotorLayout layout{};
  layout.motorNum = motorNum;
  for (std::uint32_t i = 0; i < motorNum; ++i) fillEntry(motors[i], layout.motors[i]);
  out = layout;
  return true;
}

}  // namespace orvane::RobotSdk::service
