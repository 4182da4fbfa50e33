#include "peers/RpcPair.h"

#include <stdexcept>

#include "pbase/Utils.h"
#include "peers/RawDds.h"

namespace bench {
namespace {

using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RPCServer;

constexpr const char* kServer = "benchServer";
constexpr std::uint32_t kFirstRequestMs = 10000;
constexpr std::uint32_t kRequestTimeMs = 2000;

Json::Value documentIn(const Json::Value& text) {
  Json::Value document;
  if (!Pexal::Utils::stringToJson(text.asString(), document)) {
    throw std::runtime_error("a text isn't JSON");
  }
  return document;
}

}  // namespace

std::shared_ptr<IDDSFactory> startFactory(std::uint32_t domain, const char* server) {
  Json::Value document(Json::objectValue);
  Json::Value& host = document["domain"].append(Json::Value(Json::objectValue));
  host["name"] = "host";
  host["domain"] = domain;
  host["url"] = rawProfile(domain);
  Json::Value& client = document["client"].append(Json::Value(Json::objectValue));
  client["server"] = server;
  client["domain"] = "host";
  auto factory = IDDSFactory::create();
  if (!factory->initial(document)) throw std::runtime_error("the DDS layer doesn't start");
  return factory;
}

RpcServerRole::RpcServerRole(const Json::Value& arguments)
    : factory_(startFactory(arguments["domain"].asUInt(), kServer)),
      server_(RPCServer::create(factory_, "host", kServer, arguments["device"].asString(),
                                [document = documentIn(arguments["reply"])](const RpcRequest&) {
                                  RpcReply reply;
                                  reply.document = document;
                                  return reply;
                                })) {
  if (server_ == nullptr) throw std::runtime_error("no server");
}

RpcServerRole::~RpcServerRole() {
  server_->stop();
  factory_->shutdown();
}

RpcClientRole::RpcClientRole(const Json::Value& arguments)
    : factory_(startFactory(arguments["domain"].asUInt(), kServer)),
      client_(factory_->rpcClient(kServer)),
      device_(arguments["device"].asString()),
      request_(documentIn(arguments["request"])) {
  if (client_ == nullptr) throw std::runtime_error("no client");
  Json::Value response;
  if (client_->call("bench", "ask", request_, response, kFirstRequestMs, device_) != 0) {
    throw std::runtime_error("the server doesn't answer");
  }
}

RpcClientRole::~RpcClientRole() {
  factory_->shutdown();
}

bool RpcClientRole::ask() {
  Json::Value response;
  return client_->call("bench", "ask", request_, response, kRequestTimeMs, device_) == 0;
}

}  // namespace bench
