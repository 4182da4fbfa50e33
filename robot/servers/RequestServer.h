#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "RobotCore.h"
#include "pdbus/RPC.h"
#include "servers/Methods.h"

namespace orvane::robot {

/// Answers the requests of the robot's services: documents in, documents out. Two tables
/// (Methods.h) say which handler serves a method and whether the caller must hold control.
///
/// An answer is {"result": true, "params"?} or {"result": false, "reason": text} with the reason's
/// number beside it; with kNoSession "params" says {"sessionInvalid": true}. Nothing that a
/// document holds makes it throw or terminate.
///
/// Threading contract: handle() may be called from several threads; each request is one access to
/// the robot, so requests never overlap. Takes the robot mutex, blocks for nothing else.
class RequestServer {
 public:
  /// What the service is called on the motion board and for external hosts, and on the brain board.
  static constexpr const char* kService = "robotAppService";
  static constexpr const char* kBrainService = "brainAppService";
  /// The service for low-level sessions.
  static constexpr const char* kMotionService = "motionService";

  RequestServer(std::shared_ptr<RobotCore> core, std::string deviceId);

  /// `service`: what it is called where the request came in.
  [[nodiscard]] Pexal::PDBus::RpcReply handle(const Pexal::PDBus::RpcRequest& request,
                                              const char* service = kService);
  /// Refuses `request` whatever it asks for; shown as the last refusal like any other.
  [[nodiscard]] Pexal::PDBus::RpcReply refuse(const Pexal::PDBus::RpcRequest& request,
                                              Refusal refusal);
  /// Of any service.
  [[nodiscard]] static bool isMethod(const std::string& name);

 private:
  [[nodiscard]] Pexal::PDBus::RpcReply answer(const Method& method, const Json::Value& document);
  [[nodiscard]] static Pexal::PDBus::RpcReply refusal(RobotCore::Access& robot,
                                                      const std::string& method,
                                                      std::string clientId, Refusal refusal);
  [[nodiscard]] Answer carryOut(RobotCore::Access& robot, const Method& method,
                                const Json::Value& document, const HostFigures& host,
                                std::string& clientId);

  const std::shared_ptr<RobotCore> core_;
  const Identity self_;
};

}  // namespace orvane::robot
