#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <memory>
#include <string>

#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

namespace Pexal::PDBus {

/// What the factory stops at shutdown, in two steps over all endpoints: first every intake, then
/// the joining and freeing. Both are idempotent and may be called from any thread.
class Stoppable {
 public:
  virtual ~Stoppable() = default;
  /// Refuses new work, ends pending calls (kStopped). Doesn't wait.
  virtual void beginStop() = 0;
  /// Waits (bounded) for what must not be cut off, joins threads, deletes DDS entities.
  virtual void finishStop() = 0;
};

class RpcClientEndpoint : public RPCClient, public Stoppable {};
class EventBusEndpoint : public IEventBus, public Stoppable {};

/// One entry of "eventBus". The two flags name the directions as a client sees them; with the
/// server's role the same flag switches the other end: `receive` then lets it publish, `publish`
/// lets it receive.
struct EventBusSettings {
  std::string server;
  std::uint32_t maxTopics = 16;
  std::uint32_t workers = 2;         ///< 1 to 16; others are clamped
  std::uint32_t queuePerTopic = 16;  ///< 1 to 4096; others are clamped
  bool receive = true;               ///< "withService": events go from the server to its clients
  bool publish = true;               ///< "withClient": events go from clients to the server
  bool serverRole = false;           ///< "role": "server"
};

/// Null (with the reason logged) when DDS refuses. `participant` outlives the endpoint's
/// finishStop.
std::shared_ptr<RpcClientEndpoint> makeRpcClient(dds_entity_t participant,
                                                 const std::string& server);
std::shared_ptr<EventBusEndpoint> makeEventBus(dds_entity_t participant,
                                               const EventBusSettings& settings);

}  // namespace Pexal::PDBus
