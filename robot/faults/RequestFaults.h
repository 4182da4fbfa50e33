#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "faults/FaultCommand.h"
#include "faults/Voice.h"
#include "pbase/CMutex.h"
#include "pdbus/RPC.h"
#include "servers/RequestServer.h"

namespace orvane::robot {

/// Stands before the request server: refuses, drops, delays or withholds as it was told to.
///
/// Threading contract: any thread. mutex_ guards the rules and is a leaf: nothing is called under
/// it. A delay holds up the calling server thread and no lock; stop() and clear() end it.
class RequestFaults {
 public:
  RequestFaults(std::shared_ptr<RequestServer> server, std::shared_ptr<Voice> voice)
      : server_(std::move(server)), voice_(std::move(voice)) {}

  /// What the robot answers to `request`, faults included. `service` as in RequestServer::handle.
  [[nodiscard]] Pexal::PDBus::RpcReply handle(const Pexal::PDBus::RpcRequest& request,
                                              const char* service = RequestServer::kService);

  /// A kRefuse, kDelay, kDrop or kWithhold, in place of the one of its kind for the same method.
  /// Why not, or nothing when it is there.
  [[nodiscard]] std::optional<std::string> add(const FaultCommand& rule);
  /// Forgets all rules; answers that are delayed now go out.
  void clear();
  /// As clear, and none is added any more.
  void stop();
  /// The rules that are left, with the times that are left.
  [[nodiscard]] std::vector<FaultCommand> rules();

 private:
  static constexpr std::size_t kMostRules = 64;

  /// What becomes of one request.
  struct Fate {
    bool drop = false;
    bool withhold = false;
    std::uint32_t delayMs = 0;
    std::uint32_t errorNumber = 0;  // 0: not refused
    std::uint64_t clears = 0;       // seen when it was decided
  };
  [[nodiscard]] Fate fateOf(const std::string& method);
  [[nodiscard]] FaultCommand consume(Fault fault, const std::string& method);
  void wait(const Fate& fate);

  const std::shared_ptr<RequestServer> server_;
  const std::shared_ptr<Voice> voice_;
  Pexal::PBase::CMutex mutex_;  // guards what follows
  Pexal::PBase::CCondition cleared_;
  std::vector<FaultCommand> rules_;
  std::uint64_t clears_ = 0;
  bool stopped_ = false;
};

}  // namespace orvane::robot
