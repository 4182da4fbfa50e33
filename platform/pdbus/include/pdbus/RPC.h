#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pbase/Export.h"

namespace Pexal::PDBus {

class IDDSFactory;

/// Outcome of the transport of a request. Everything but kOk is a transport failure: no answer of a
/// handler exists. Values are part of the wire protocol (those a server sends).
enum class RpcStatus : std::uint32_t {
  kOk = 0,          ///< delivered, and answered by the server's handler
  kTimeout = 1,     ///< no answer within the caller's time-out; it may still have been carried out
  kNoServer = 2,    ///< no server was found within the time-out; nothing was sent
  kServerGone = 3,  ///< the server vanished while the answer was awaited
  kStopped = 4,     ///< the DDS layer was shut down
  kInvalidArgument = 5,    ///< refused before sending: document or name too large, bad device id
  kMalformedReply = 6,     ///< the answer isn't JSON, or exceeds the bounds (1 MiB, depth)
  kSendFailed = 7,         ///< the DDS layer didn't take the request
  kNoService = 8,          ///< the server doesn't serve that service
  kNoMethod = 9,           ///< the service has no such method
  kMalformedRequest = 10,  ///< the server couldn't read the request
  kHandlerFailed = 11,     ///< the server's handler threw
};

/// Client side of request/response and one-way calls to one named server.
///
/// Every operation may be called from any thread. Requests are carried out at most once; they are
/// never repeated by the client. A request goes only to the server that serves `deviceId` (empty:
/// the server of this board; at most 255 bytes, any bytes), and its answer only to this client.
/// Documents are bounded to 1 MiB of JSON text, service and method names to 255 bytes.
///
/// The first request for a device opens a channel to it, which is kept until the DDS layer is shut
/// down.
class PEXAL_API RPCClient {
 public:
  virtual ~RPCClient();

  /// The client of `server` in the started IDDSFactory::instance(). Null when the DDS layer isn't
  /// started or its document doesn't name the server under "client".
  static std::shared_ptr<RPCClient> instance(const std::string& server);

  /// Sends a request without awaiting an answer. Returns an RpcStatus as number: 0 once the DDS
  /// layer has taken it for a server that is matched. Blocks at most 500 ms (full send queue). A
  /// later shutdown of the DDS layer lets what was taken reach the server (bounded, 1 s).
  virtual std::uint32_t sendAction(const std::string& service, const std::string& method,
                                   const Json::Value& request, const std::string& deviceId) = 0;

  /// Sends a request and waits for the answer, at most `timeoutMs`, discovery of the server on a
  /// first call included; ends early when the server is seen to die or the DDS layer is shut down.
  /// Returns an RpcStatus as number. `response` is the answer's document when 0 (whatever JSON
  /// value the server sent: a well-behaved one sends an object), else unchanged. Sets the thread's
  /// getLastErrno() to the answer's reason code; on failure to the status's errno value (ETIMEDOUT,
  /// ECONNRESET, ...), never to an old reason.
  virtual std::uint32_t call(const std::string& service, const std::string& method,
                             const Json::Value& request, Json::Value& response,
                             std::uint32_t timeoutMs, const std::string& deviceId) = 0;
};

/// One request as the server's handler sees it.
struct RpcRequest {
  std::string service;
  std::string method;
  Json::Value document;  ///< always an object
  bool oneWay = false;   ///< nobody awaits the answer
};

/// The handler's answer.
struct RpcReply {
  Json::Value document;               ///< sent as it is; should be an object
  std::uint32_t reason = 0;           ///< what getLastErrno() gives on the calling thread
  RpcStatus status = RpcStatus::kOk;  ///< kNoService, kNoMethod or kMalformedRequest where fitting
  bool withheld = false;  ///< nothing is sent, so that the caller runs into its time-out
};

/// Server side: takes the requests for one server name and device, calls the handler one request
/// after the other on a thread of its own, in the order in which each client sent them, and sends
/// the answers. Used by the virtual robot.
///
/// A request that can't be read is answered with kMalformedRequest and one that comes a second time
/// is dropped, both without a call of the handler; what it throws is logged and answered with
/// kHandlerFailed. Up to 256 requests per client wait for the handler; what exceeds that is dropped
/// and its caller runs into its time-out.
class PEXAL_API RPCServer {
 public:
  using Handler = std::function<RpcReply(const RpcRequest&)>;

  virtual ~RPCServer();

  /// Starts serving in `factory` (started) on the domain of that name ("domain" list of its
  /// document). `deviceId` selects the requests taken (empty: those of clients on the same board).
  /// Null when the domain is unknown or DDS refuses, with the reason logged.
  static std::shared_ptr<RPCServer> create(const std::shared_ptr<IDDSFactory>& factory,
                                           const std::string& domain, const std::string& server,
                                           const std::string& deviceId, Handler handler);

  /// No handler call begins after this returns; waits for the one in flight unless called from it,
  /// without a bound since it uses what belongs to the caller. The destructor does the same. A
  /// shutdown of the factory stops the server too, but waits for a handler for 3 s only.
  virtual void stop() = 0;

  /// Name and text of a status, e.g. "kTimeout: no answer within the time-out". Never null; unknown
  /// numbers give a text that says so.
  static const char* dumpCode(std::uint32_t status) noexcept;
};

}  // namespace Pexal::PDBus
