#include "sides/Side.h"

#include <exception>
#include <utility>

#include "faults/FaultService.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RPCServer;

}  // namespace

bool Side::open(std::string& error) {
  if (auto why = obstacle()) {
    error = *std::move(why);
    return false;
  }
  const Plan served = plan();
  Json::Value document;
  document["domain"] = served.domains;
  for (const Bus& row : served.buses) {
    Json::Value bus;
    bus["server"] = row.server;
    bus["domain"] = row.domain;
    bus["role"] = "server";
    bus["topics"] = 16;
    bus["workers"]["count"] = 1;
    bus["workers"]["task"] = 16;
    document["eventBus"].append(std::move(bus));
  }
  auto factory = IDDSFactory::create();
  if (!factory->initial(document)) {
    error = joinFailure();
    return false;
  }
  factory_ = std::move(factory);
  try {
    publisher_ = makePublisher(*factory_);
  } catch (const std::exception& failure) {
    error = std::string("can't publish: ") + failure.what();
    close();
    return false;
  }
  return true;
}

bool Side::serve(std::string& error) {
  const Plan served = plan();
  if (!openMotors(error) || !serveEvents(served, error)) return false;
  for (const Server& row : served.servers) {
    const auto handle = [faults = robot_.faults, service = row.service](const RpcRequest& request) {
      return faults->requests().handle(request, service);
    };
    if (!addServer(served, row.name, row.domain, handle, error)) return false;
  }
  const auto handle = [service = FaultService(robot_.faults)](const RpcRequest& request) {
    return service.handle(request);
  };
  return addServer(served, FaultService::kServer, served.controlDomain, handle, error);
}

bool Side::serveEvents(const Plan& plan, std::string& error) {
  std::vector<EventServer::Bus> buses;
  for (const Bus& row : plan.buses) buses.push_back({row.server, factory_->eventBus(row.server)});
  auto events = std::make_shared<EventServer>(robot_.core, outbox_, std::move(buses),
                                              robot_.deviceId, robot_.faults->voice());
  if (!events->start()) {
    error = "can't serve events";
    return false;
  }
  events_ = std::move(events);
  return true;
}

bool Side::addServer(const Plan& plan, const char* name, const char* domain,
                     RPCServer::Handler handler, std::string& error) {
  auto server = RPCServer::create(factory_, domain, name, plan.partition, std::move(handler));
  if (server == nullptr) {
    error = std::string("can't serve ") + name;
    return false;
  }
  servers_.push_back(std::move(server));
  return true;
}

void Side::endRequests() {
  for (const auto& server : servers_) server->stop();
  servers_.clear();
  closeMotors();
}

void Side::close() {
  if (factory_ == nullptr) return;
  endRequests();
  if (events_ != nullptr) events_->stop();
  // Takes the writers with it, all side by side: each may wait a second for a client that reads
  // reliably and stands still.
  factory_->shutdown();
  publisher_.reset();
  events_.reset();
  factory_.reset();
}

}  // namespace orvane::robot
