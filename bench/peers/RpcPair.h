#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "harness/Role.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/RPC.h"

namespace bench {

/// The server of the library's request layer by itself. {"domain", "device", "reply": JSON text}.
class RpcServerRole final : public ServerRole {
 public:
  explicit RpcServerRole(const Json::Value& arguments);
  ~RpcServerRole() override;

 private:
  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  std::shared_ptr<Pexal::PDBus::RPCServer> server_;
};

/// Its client. {"domain", "device", "request": JSON text}.
class RpcClientRole final : public AskingRole {
 public:
  explicit RpcClientRole(const Json::Value& arguments);
  ~RpcClientRole() override;

 private:
  bool ask() override;

  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  std::shared_ptr<Pexal::PDBus::RPCClient> client_;
  const std::string device_;
  const Json::Value request_;
};

/// The smallest texts that make sense, for both this layer and a raw baseline.
inline constexpr const char* kTinyRequest = R"({"n":1})";
inline constexpr const char* kTinyReply = R"({"result":true})";

/// A started DDS context on loopback that may ask `server`.
[[nodiscard]] std::shared_ptr<Pexal::PDBus::IDDSFactory> startFactory(std::uint32_t domain,
                                                                      const char* server);

}  // namespace bench
