#pragma once

#include <memory>

#include "faults/Faults.h"
#include "pdbus/RPC.h"

namespace orvane::robot {

/// The robot's control service: documents in, faults out. It has an RPC server of its own, so that
/// it answers while the robot is silent or holds an answer back.
///
/// A request is {"params": {"commands": [text, ...]}}, an answer {"result": bool, "reason"?,
/// "params": {"answers": [text, ...]}}.
class FaultService {
 public:
  static constexpr const char* kServer = "virtualRobot";
  static constexpr const char* kService = "faultService";
  static constexpr const char* kApply = "apply";

  explicit FaultService(std::shared_ptr<Faults> faults) : faults_(std::move(faults)) {}

  /// Any thread; blocks for the robot mutex only.
  [[nodiscard]] Pexal::PDBus::RpcReply handle(const Pexal::PDBus::RpcRequest& request) const;

 private:
  const std::shared_ptr<Faults> faults_;
};

}  // namespace orvane::robot
