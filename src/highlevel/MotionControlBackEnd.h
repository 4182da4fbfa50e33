#pragma once

#include <memory>
#include <string>

#include "highlevel/IHighLevelMotionControl.h"
#include "highlevel/RpcEnvelope.h"
#include "pbase/CMutex.h"

namespace orvane::RobotSdk {

class MotionHighLevelClientImpl;

/// What the motion back ends have in common: everything but where the requests go, how their log
/// lines begin and which master role they claim.
///
/// Threading contract: any thread may call anything. `mutex_` is a leaf lock, held while the route
/// is copied or exchanged and never during a request. The owner is held strongly for the length of
/// a call and weakly otherwise; a call whose owner is gone fails without a trace.
class MotionControlBackEnd : public IHighLevelMotionControl {
 public:
  bool setup() override;
  bool teardown() override;
  bool disableAction(std::uint32_t timeoutMs) override;
  bool standing(std::uint32_t timeoutMs) override;
  bool laying(std::uint32_t timeoutMs) override;
  bool stopMotionAction(std::uint32_t timeoutMs) override;
  bool recoveryStand(std::uint32_t timeoutMs) override;
  bool emergencyStopMotion(std::uint32_t timeoutMs) override;
  bool setMotionMasterRole(std::uint32_t timeoutMs) override;
  bool getMotorLayout(Json::Value& out, std::uint32_t timeoutMs) override;
  bool queryMotionState(Json::Value& out, std::uint32_t timeoutMs) override;
  bool getMotionCapabilities(Json::Value& out, std::uint32_t timeoutMs) override;
  bool velocityMove(float lineX, float lineY, float velocity, std::uint32_t timeoutMs) override;
  bool setMotionActionParams(const Json::Value& params, std::uint32_t timeoutMs) override;
  bool setMotionObservedEnable(const Json::Value& params, std::uint32_t timeoutMs) override;
  bool startMotionAction(const std::string& action, const Json::Value& params,
                         std::uint32_t timeoutMs) override;

 protected:
  /// One row per board.
  struct Board {
    RpcVoice voice;
    const char* server;
    bool brainService;  ///< ask for the application service name with the brain's role
    const char* masterRole;
  };

  MotionControlBackEnd(std::weak_ptr<MotionHighLevelClientImpl> owner, const Board& board);

 private:
  bool request(const char* method, const Json::Value& params, Json::Value& out,
               std::uint32_t timeoutMs);
  bool command(const char* method, const Json::Value& params, std::uint32_t timeoutMs);
  bool plainAction(const char* action, std::uint32_t timeoutMs);

  const std::weak_ptr<MotionHighLevelClientImpl> owner_;
  const Board board_;
  Pexal::PBase::CMutex mutex_;  // guards the two below
  std::string service_;
  std::shared_ptr<Pexal::PDBus::RPCClient> rpcClient_;  // empty until setup succeeds
};

/// Motion by way of the application board; claims the master role for "brain".
class BrainHighMotionControl final : public MotionControlBackEnd {
 public:
  explicit BrainHighMotionControl(std::weak_ptr<MotionHighLevelClientImpl> owner);
};

/// Motion on the motion board itself; claims the master role for "cerebellum". `remote`: the client
/// was made with a device id and reaches the board from an external host.
class CereHighMotionControl final : public MotionControlBackEnd {
 public:
  CereHighMotionControl(std::weak_ptr<MotionHighLevelClientImpl> owner, bool remote);
};

}  // namespace orvane::RobotSdk
