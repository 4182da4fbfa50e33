#include "core/Documents.h"

#include <cmath>
#include <memory>

#include "core/Failure.h"
#include "core/Text.h"

namespace robotctl {
namespace {

constexpr int kMostLevels = 64;  // what the library lets through

bool isScalar(const Json::Value& value) {
  return !value.isArray() && !value.isObject();
}

std::string scalarText(const Json::Value& value) {
  if (value.isNull()) return "-";
  if (value.isString()) return printable(value.asString());
  if (value.isBool()) return value.asBool() ? "yes" : "no";
  if (value.isDouble() && !value.isIntegral()) return format("%.6g", value.asDouble());
  return value.asString();
}

std::string listText(const Json::Value& array) {
  std::string text;
  for (const Json::Value& entry : array) text += (text.empty() ? "" : ", ") + scalarText(entry);
  return text.empty() ? "none" : text;
}

void flatten(const Json::Value& value, const std::string& path, int level,
             std::vector<std::vector<std::string>>& rows) {
  if (level > kMostLevels) return;
  const auto below = [&](const std::string& name) {
    return path.empty() ? name : path + '.' + name;
  };
  if (value.isObject()) {
    for (const std::string& name : value.getMemberNames()) {
      flatten(value[name], below(printable(name)), level + 1, rows);
    }
  } else if (value.isArray()) {
    bool plain = true;
    for (const Json::Value& entry : value) plain = plain && isScalar(entry);
    if (plain) {
      rows.push_back({path, listText(value)});
      return;
    }
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
      flatten(value[i], below(std::to_string(i)), level + 1, rows);
    }
  } else {
    rows.push_back({path, scalarText(value)});
  }
}

std::uint64_t millisecondsAt(const Json::Value& document, std::string_view path) {
  const double value = numberAt(document, path).value_or(0);
  return value > 0 && value < 1e15 ? static_cast<std::uint64_t>(value) : 0;
}

/// Of one way in which commands to the motors come; "" when none came.
std::string commandsText(const Json::Value& way) {
  const double carriedOut = numberAt(way, "commands").value_or(0);
  const double refused = numberAt(way, "refused").value_or(0);
  if (!(carriedOut + refused > 0)) return {};
  std::string text = format("%.0f carried out, %.0f refused", carriedOut, refused);
  const std::string why = textAt(way, "lastRefusal");
  if (refused > 0 && !why.empty()) text += ": " + why;
  return text;
}

}  // namespace

Json::Value parseObject(const std::string& text, const std::string& what) {
  Json::Value document;
  std::string errors;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  bool read = false;
  try {
    read = reader->parse(text.data(), text.data() + text.size(), &document, &errors);
  } catch (const std::exception& error) {  // nested too deeply
    errors = error.what();
  }
  if (read && document.isObject()) return document;
  throw Failure(ExitCode::kRefused,
                what + " can't be read: " + (read ? "it is no JSON object" : printable(errors)));
}

const Json::Value& valueAt(const Json::Value& document, std::string_view path) {
  const Json::Value* value = &document;
  while (!path.empty()) {
    const std::size_t dot = std::min(path.find('.'), path.size());
    const std::string_view name = path.substr(0, dot);
    path.remove_prefix(std::min(dot + 1, path.size()));
    if (!value->isObject()) return Json::Value::nullSingleton();
    value = value->find(name.data(), name.data() + name.size());
    if (value == nullptr) return Json::Value::nullSingleton();
  }
  return *value;
}

std::string textAt(const Json::Value& document, std::string_view path) {
  const Json::Value& value = valueAt(document, path);
  return value.isString() ? printable(value.asString()) : std::string();
}

std::optional<double> numberAt(const Json::Value& document, std::string_view path) {
  const Json::Value& value = valueAt(document, path);
  if (!value.isNumeric() || !std::isfinite(value.asDouble())) return std::nullopt;
  return value.asDouble();
}

bool flagAt(const Json::Value& document, std::string_view path) {
  const Json::Value& value = valueAt(document, path);
  return value.isBool() && value.asBool();
}

std::string describeHolder(const Json::Value& motionState) {
  if (flagAt(motionState, "control.controlled")) {
    std::string text = textAt(motionState, "control.holder");
    if (text.empty()) text = "somebody";
    const std::uint64_t now = millisecondsAt(motionState, "timeMs");
    const std::uint64_t since = millisecondsAt(motionState, "control.sinceMs");
    if (since > 0 && now >= since) text += ", for " + duration(now - since);
    if (const auto left = millisecondsAt(motionState, "control.remainingMs"); left > 0) {
      text += ", " + duration(left) + " left of its lease";
    }
    return text;
  }
  if (flagAt(motionState, "lowLevel.active")) {
    return "a low-level session of " + textAt(motionState, "lowLevel.holder");
  }
  if (flagAt(motionState, "simulation.active")) return "a low-level simulation client";
  return {};
}

std::string describePlace(const Json::Value& motionState) {
  const auto figure = [&motionState](const char* path) {
    return signedNumber(numberAt(motionState, path).value_or(0), 2);
  };
  return "x " + figure("odometry.x") + " m, y " + figure("odometry.y") + " m, yaw " +
         figure("odometry.yaw") + " rad";
}

std::string describeMotorCommands(const Json::Value& motionState) {
  const std::string session = commandsText(valueAt(motionState, "lowLevel"));
  const std::string overDds = commandsText(valueAt(motionState, "simulation"));
  if (session.empty() || overDds.empty()) return session + overDds;
  return "in a session " + session + "; over DDS " + overDds;
}

std::string flattened(const Json::Value& document) {
  std::vector<std::vector<std::string>> rows;
  flatten(document, "", 0, rows);
  return table(rows);
}

}  // namespace robotctl
