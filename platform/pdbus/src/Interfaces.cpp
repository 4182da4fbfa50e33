#include "pdbus/IDDSFactory.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

// The interfaces' anchors, and the shortcuts into the process's own factory.

namespace Pexal::PDBus {

IDDSFactory::~IDDSFactory() = default;
RPCClient::~RPCClient() = default;
RPCServer::~RPCServer() = default;
IEventBus::~IEventBus() = default;
IBaseDDSReader::~IBaseDDSReader() = default;
IDDSSubcriber::~IDDSSubcriber() = default;

std::shared_ptr<RPCClient> RPCClient::instance(const std::string& server) {
  return IDDSFactory::instance()->rpcClient(server);
}

std::shared_ptr<IEventBus> IEventBus::instance(const std::string& server) {
  return IDDSFactory::instance()->eventBus(server);
}

std::shared_ptr<IDDSSubcriber> IDDSSubcriber::instance(const std::string& domain,
                                                       const std::string& topic) {
  return IDDSFactory::instance()->subscriber(domain, topic);
}

}  // namespace Pexal::PDBus
