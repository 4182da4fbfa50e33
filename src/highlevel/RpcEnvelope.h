#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "pdbus/RPC.h"

namespace orvane::RobotSdk {

/// Who speaks in the log lines of a request.
struct RpcVoice {
  const char* unit;   ///< source unit
  const char* words;  ///< how the line begins, e.g. "high level"
};

/// Where a request goes.
struct RpcRoute {
  std::shared_ptr<Pexal::PDBus::RPCClient> client;  ///< null: no endpoint
  std::string service;
  std::string deviceId;
};

/// {"call": {"clientId": clientId}, "params": params}; empty params (null, {} or []) are left out.
[[nodiscard]] Json::Value makeRpcRequest(const std::string& clientId, const Json::Value& params);

/// True when the reply says that the request was carried out. `output` becomes the reply's "params"
/// (null when there are none) whatever the verdict. Takes any document.
[[nodiscard]] bool readRpcReply(Json::Value reply, Json::Value& output);

/// Makes a request and waits for the answer, at most `timeoutMs`. Gives error::kNone, kNoEndpoint
/// (nothing sent), kTransport or kRefused; the latter two are logged. `output` is written when an
/// answer came, refusals included. The calling thread's getLastErrno() holds the answer's reason
/// code.
[[nodiscard]] std::uint32_t callServer(const RpcVoice& voice, const RpcRoute& route,
                                       const std::string& method, const std::string& clientId,
                                       const Json::Value& params, Json::Value& output,
                                       std::uint32_t timeoutMs);

/// Sends a request that nobody answers. Gives error::kNone, kNoEndpoint or (logged) kTransport.
[[nodiscard]] std::uint32_t sendToServer(const RpcVoice& voice, const RpcRoute& route,
                                         const std::string& method, const std::string& clientId,
                                         const Json::Value& params);

}  // namespace orvane::RobotSdk
