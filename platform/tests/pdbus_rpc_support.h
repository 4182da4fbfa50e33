#pragma once

#include "pbase/CTime.h"
#include "pbase/System.h"
#include "pdbus/RPC.h"
#include "pdbus_wire.h"

namespace platform_test {

using Pexal::PBase::CTime;
using namespace Pexal::PDBus;

constexpr std::uint32_t kLongMs = 60'000;

constexpr std::uint32_t code(RpcStatus status) {
  return static_cast<std::uint32_t>(status);
}
constexpr auto kOk = code(RpcStatus::kOk);

inline std::shared_ptr<RPCServer> serve(const Node& node, const std::string& device,
                                        RPCServer::Handler handler) {
  auto server = RPCServer::create(node.factory, "host", "robotServer", device, std::move(handler));
  EXPECT_NE(server, nullptr);
  return server;
}

inline RpcReply echo(const RpcRequest& request) {
  return {request.document, 0, RpcStatus::kOk};
}

struct Called {
  std::uint32_t status;
  Json::Value response;
  std::uint32_t error;
  std::uint64_t ms;
};

inline Called call(const Node& node, const std::string& method, const Json::Value& request,
                   const std::string& device = "D1", std::uint32_t timeoutMs = kLongMs) {
  const auto client = node.factory->rpcClient("robotServer");
  Called result{99, "untouched", 0, CTime::getCurrentMilliSecond()};
  Pexal::PBase::setLastErrno(4711);
  result.status = client->call("service", method, request, result.response, timeoutMs, device);
  result.error = Pexal::PBase::getLastErrno();
  result.ms = CTime::getCurrentMilliSecond() - result.ms;
  return result;
}

inline std::uint32_t sendAction(const Node& node, const Json::Value& request) {
  return node.factory->rpcClient("robotServer")->sendAction("service", "act", request, "D1");
}

/// Remembers the requests that it carried out.
class Carried {
 public:
  RpcReply operator()(const RpcRequest& request) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(request.document["n"].asInt());
    return {};
  }
  std::vector<int> entries() {
    const std::lock_guard lock(mutex_);
    return entries_;
  }

 private:
  Pexal::PBase::CMutex mutex_;  // guards entries_
  std::vector<int> entries_;
};

/// As it comes back: integers have several types.
inline Json::Value request(int n) {
  return json("{\"n\":" + std::to_string(n) + "}");
}

}  // namespace platform_test
