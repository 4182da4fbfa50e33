#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "RobotCore.h"
#include "media/HostFigures.h"
#include "servers/Checks.h"

namespace orvane::robot {

/// What a robot says of itself that never changes.
struct Identity {
  std::string deviceId;
  std::uint64_t startedMs = 0;  ///< of the platform's clock
};

/// A request whose envelope was read.
struct Call {
  RobotCore::Access& robot;
  const std::string& clientId;
  const Json::Value& params;  ///< object or null
  const Identity& self;
  const HostFigures& host;  ///< read for methods that tell of it
};

/// The "params" of an answer (null: none), or why there is none.
using Answer = Checked<Json::Value>;

/// No params, or the refusal.
[[nodiscard]] inline Answer doneOr(std::optional<Refusal> refusal) {
  if (refusal) return *std::move(refusal);
  return Json::Value();
}

/// One row of the services' tables.
struct Method {
  const char* name;
  bool needsControl;
  Answer (*handler)(const Call&);
  bool tellsOfHost = false;
};

/// What the robot's application services know; null: no such method.
[[nodiscard]] const Method* findAppMethod(const std::string& name);
/// What the motion service knows, which is for low-level sessions.
[[nodiscard]] const Method* findSessionMethod(const std::string& name);

/// Of the application services, too: play list, audio files, camera light, system status.
[[nodiscard]] const Method* findMediaMethod(const std::string& name);

/// Why nobody else can have the robot while a client on another machine commands its motors.
[[nodiscard]] std::optional<Refusal> heldFromAfar(RobotCore::Access& robot);

/// Of the application services, though it concerns a session.
[[nodiscard]] Answer restoreMotionControlMode(const Call& call);

[[nodiscard]] inline const Method* findIn(const Method* first, const Method* last,
                                          const std::string& name) {
  for (; first != last; ++first) {
    if (name == first->name) return first;
  }
  return nullptr;
}

}  // namespace orvane::robot
