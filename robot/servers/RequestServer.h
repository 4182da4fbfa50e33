#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "RobotCore.h"
#include "pdbus/RPC.h"
#include "servers/Checks.h"

namespace orvane::robot {

/// Answers the requests of the robot's application service: documents in, documents out. One table
/// says which handler serves a method and whether the caller must hold control.
///
/// An answer is {"result": true, "params"?} or {"result": false, "reason": text} with the reason's
/// number beside it. Nothing that a document holds makes it throw or terminate.
///
/// Threading contract: handle() may be called from several threads; each request is one access to
/// the robot, so requests never overlap. Takes the robot mutex, blocks for nothing else.
class RequestServer {
 public:
  /// What the service is called on the motion board and for external hosts, and on the brain board.
  static constexpr const char* kService = "robotAppService";
  static constexpr const char* kBrainService = "brainAppService";

  RequestServer(std::shared_ptr<RobotCore> core, std::string deviceId);

  /// `service`: what it is called where the request came in.
  [[nodiscard]] Pexal::PDBus::RpcReply handle(const Pexal::PDBus::RpcRequest& request,
                                              const char* service = kService);
  /// Refuses `request` whatever it asks for; shown as the last refusal like any other.
  [[nodiscard]] Pexal::PDBus::RpcReply refuse(const Pexal::PDBus::RpcRequest& request,
                                              Refusal refusal);
  [[nodiscard]] static bool isMethod(const std::string& name) { return find(name) != nullptr; }

 private:
  /// A request whose envelope was read.
  struct Call {
    RobotCore::Access& robot;
    const std::string& clientId;
    const Json::Value& params;  ///< object or null
  };
  using Answer = Checked<Json::Value>;
  struct Method;
  static const Method kMethods[];

  [[nodiscard]] static const Method* find(const std::string& name);
  [[nodiscard]] Pexal::PDBus::RpcReply answer(const Method& method, const Json::Value& document);
  [[nodiscard]] static Pexal::PDBus::RpcReply refusal(RobotCore::Access& robot,
                                                      const std::string& method,
                                                      std::string clientId, Refusal refusal);
  [[nodiscard]] Answer carryOut(RobotCore::Access& robot, const Method& method,
                                const Json::Value& document, std::string& clientId);

  Answer takeControl(const Call& call);
  Answer renewControl(const Call& call);
  Answer releaseControl(const Call& call);
  Answer setMasterRole(const Call& call);
  Answer startAction(const Call& call);
  Answer stopAction(const Call& call);
  Answer emergencyStop(const Call& call);
  Answer setActionParams(const Call& call);
  Answer enableObserved(const Call& call);
  Answer motorLayout(const Call& call);
  Answer motionState(const Call& call);
  Answer capabilities(const Call& call);
  Answer systemStatus(const Call& call);
  Answer refuseMedia(const Call& call);

  const std::shared_ptr<RobotCore> core_;
  const std::string deviceId_;
  const std::uint64_t startedMs_;
};

}  // namespace orvane::robot
