#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <string_view>

/// The robot's documents. What they hold is the robot's, so nothing is taken for granted: whatever
/// is missing or has another type reads as its default. Paths are member names with dots between
/// them ("control.holder"). No member throws but parseObject.
namespace robotctl {

/// A document that must be an object. Throws Failure (kRefused), naming `what`.
[[nodiscard]] Json::Value parseObject(const std::string& text, const std::string& what);

/// Null when there is none.
[[nodiscard]] const Json::Value& valueAt(const Json::Value& document, std::string_view path);
/// Made printable (Text.h); "" when it isn't text.
[[nodiscard]] std::string textAt(const Json::Value& document, std::string_view path);
/// Nothing when it isn't a finite number.
[[nodiscard]] std::optional<double> numberAt(const Json::Value& document, std::string_view path);
[[nodiscard]] bool flagAt(const Json::Value& document, std::string_view path);

/// "walk_square, for 12 s, 41 s left of its lease" from a motion state document; "a low-level
/// session of joint_loop" when the motors are commanded one by one; "" when nobody has control.
[[nodiscard]] std::string describeHolder(const Json::Value& motionState);

/// "x +1.20 m, y +0.00 m, yaw -0.31 rad" from a motion state document.
[[nodiscard]] std::string describePlace(const Json::Value& motionState);

/// "5659 carried out, 1495 refused: another client commands the motors" from a motion state
/// document, of low-level sessions, of clients over DDS, or of both; "" when no command came.
[[nodiscard]] std::string describeMotorCommands(const Json::Value& motionState);

/// A document for people: one line for each value, "battery.voltage  50.1".
[[nodiscard]] std::string flattened(const Json::Value& document);

}  // namespace robotctl
