#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace orvane::RobotSdk {

/// Turns motion commands into requests to the board that runs motion. The order of the operations
/// is part of the interface.
///
/// Every operation may be called from any thread and blocks for at most `timeoutMs` milliseconds.
/// False: not done; the reason is in the owning client's error field. What a command sends is the
/// server's vocabulary: values are passed through without clamping or conversion.
class IHighLevelMotionControl {
 public:
  /// Obtains the RPC client of the board's server; true when it is held (also when it already was).
  virtual bool setup() = 0;
  /// Lets go of it; always true. Commands fail until the next setup.
  virtual bool teardown() = 0;
  virtual bool disableAction(std::uint32_t timeoutMs) = 0;
  virtual bool standing(std::uint32_t timeoutMs) = 0;
  virtual bool laying(std::uint32_t timeoutMs) = 0;
  virtual bool stopMotionAction(std::uint32_t timeoutMs) = 0;
  virtual ~IHighLevelMotionControl() = default;
  virtual bool recoveryStand(std::uint32_t timeoutMs) = 0;
  virtual bool emergencyStopMotion(std::uint32_t timeoutMs) = 0;
  /// Claims the role of motion master for this implementation's board.
  virtual bool setMotionMasterRole(std::uint32_t timeoutMs) = 0;
  /// The three queries write the answer's "params" to `out`, also when the server refuses.
  virtual bool getMotorLayout(Json::Value& out, std::uint32_t timeoutMs) = 0;
  virtual bool queryMotionState(Json::Value& out, std::uint32_t timeoutMs) = 0;
  virtual bool getMotionCapabilities(Json::Value& out, std::uint32_t timeoutMs) = 0;
  virtual bool velocityMove(float lineX, float lineY, float velocity, std::uint32_t timeoutMs) = 0;
  virtual bool setMotionActionParams(const Json::Value& params, std::uint32_t timeoutMs) = 0;
  virtual bool setMotionObservedEnable(const Json::Value& params, std::uint32_t timeoutMs) = 0;
  /// Null `params` are left out of the request; an empty object is sent.
  virtual bool startMotionAction(const std::string& action, const Json::Value& params,
                                 std::uint32_t timeoutMs) = 0;
};

}  // namespace orvane::RobotSdk
