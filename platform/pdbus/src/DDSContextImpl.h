#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DDSContext.h"
#include "DDSContextDocument.h"
#include "Subscriber.h"
#include "pbase/CMutex.h"

namespace Pexal::PDBus {

/// The factory.
///
/// Threading contract: any thread may call any operation. What lookups read is a snapshot that
/// initial publishes when all of it is there and shutdown withdraws before it stops anything, so no
/// lookup waits for either.
///
/// Lock order: lifecycleMutex_, attachMutex_, then one of snapshotMutex_ and a reader's own mutex.
class DDSContextImpl final : public DDSContext,
                             public ReaderHost,
                             public std::enable_shared_from_this<DDSContextImpl> {
 public:
  DDSContextImpl() = default;
  ~DDSContextImpl() override;
  DDSContextImpl(const DDSContextImpl&) = delete;
  DDSContextImpl& operator=(const DDSContextImpl&) = delete;

  void shutdown() override;
  bool initial(const Json::Value& document) override;
  std::shared_ptr<RPCClient> rpcClient(const std::string& server) override;
  std::shared_ptr<IEventBus> eventBus(const std::string& server) override;
  std::shared_ptr<IDDSSubcriber> subscriber(const std::string& domain,
                                            const std::string& topic) override;
  dds::domain::DomainParticipant participant(const std::string& domain) override;

  dds_entity_t participantOf(const std::string& domain) override;
  bool attach(const std::weak_ptr<Stoppable>& endpoint) override;

  void adopt(const std::shared_ptr<Reader>& reader) override;

 private:
  struct JoinedDomain {
    std::uint32_t id;
    dds::domain::DomainParticipant participant;
  };
  /// Everything of one start.
  struct State {
    std::map<std::string, JoinedDomain> domains;  ///< by name
    std::map<std::string, std::shared_ptr<RpcClientEndpoint>> clients;
    std::map<std::string, std::shared_ptr<EventBusEndpoint>> buses;
  };
  using Endpoints = std::vector<std::shared_ptr<Stoppable>>;
  using Readers = std::vector<std::shared_ptr<Reader>>;
  using Deliveries = std::vector<std::shared_ptr<ReaderDelivery>>;

  static bool build(const DDSContextDocument& document, State& state);
  static bool joinDomains(const DDSContextDocument& document, State& state);
  static bool makeEndpoints(const DDSContextDocument& document, State& state);
  static Endpoints endpointsOf(const State& state);
  static void stop(const State& state, const Endpoints& endpoints, const Readers& readers,
                   const Deliveries& deliveries);
  static void leaveDomains(const State& state);
  void publish(std::shared_ptr<const State> state);
  [[nodiscard]] std::shared_ptr<const State> snapshot();

  PBase::CMutex lifecycleMutex_;  // held for the whole of initial and shutdown; guards no data

  // Held while an endpoint or reader joins in, so that a shutdown either finds it or refuses it.
  PBase::CMutex attachMutex_;  // guards the lists here and every change of state_
  std::vector<std::weak_ptr<Stoppable>> endpoints_;
  std::vector<std::weak_ptr<Reader>> readers_;  ///< kept across restarts
  /// Of this start. A reader whose removal has given up waiting leaves its delivery behind here.
  std::vector<std::weak_ptr<ReaderDelivery>> deliveries_;

  PBase::CMutex snapshotMutex_;         // a leaf; guards state_ and subscribers_
  std::shared_ptr<const State> state_;  ///< null: not started
  std::map<std::pair<std::string, std::string>, std::weak_ptr<Subscriber>> subscribers_;
};

}  // namespace Pexal::PDBus
