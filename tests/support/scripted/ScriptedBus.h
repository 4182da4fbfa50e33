#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// A platform bus that plays a script. Linked instead of libpdbus, it lets a unit test stand where
/// the robot would: it answers the SDK's requests, sends it events and samples, and looks at what
/// the SDK asked for. Nothing here touches a network.
namespace scripted {

/// One RPC request of the SDK.
struct Request {
  std::string server;
  std::string service;
  std::string method;
  Json::Value document;
  std::string deviceId;
  bool oneWay = false;
  std::uint32_t timeoutMs = 0;  ///< 0 for one-way requests
  std::uint64_t atMs = 0;       ///< platform clock when it was sent
};

/// The scripted answer.
struct Reply {
  Json::Value document;       ///< a null document is handed out as it is
  std::uint32_t status = 0;   ///< transport status; the document counts only when it is 0
  std::uint32_t reason = 0;   ///< what getLastErrno() gives on the calling thread afterwards
  std::uint32_t takesMs = 0;  ///< time that the call takes; beyond the time-out it ends as kTimeout
};

/// Runs on the calling SDK thread when the request is sent, with no lock held: it may inject events
/// or call the client, so that things happen "during the call".
using RpcHandler = std::function<Reply(const Request&)>;

struct Published {
  std::string server;
  std::string topic;
  Json::Value payload;
  std::uint32_t openMs = 0;
};

struct Subscription {
  std::string server;
  std::string topic;
};

/// A typed reader that the SDK made.
struct ReaderInfo {
  std::string domain;
  std::string topic;
  bool removed = false;
  std::size_t attached = 0;  ///< wait sets that it is attached to now
  std::function<bool(std::string_view userData)> takesWriter;  ///< empty: takes all
};

[[nodiscard]] Reply accepted(Json::Value params = {});  ///< "result" true
[[nodiscard]] Reply refused(std::uint32_t reason = 0, Json::Value params = {});
[[nodiscard]] Reply transportFailure(std::uint32_t status);

/// The scripted platform. While one lives, RPCClient::instance and its siblings lead to it; at most
/// one at a time, made before the objects under test (and after the VirtualClock, if any). Without
/// one nothing is available. Objects that it handed out stay valid afterwards and answer as
/// stopped.
///
/// Any thread may call anything. Calls, events and samples run with no lock of this class held.
class Bus {
 public:
  struct State;

  Bus();
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  // --- RPC ---
  void onRequest(RpcHandler handler);  ///< the default accepts everything
  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] std::vector<Request> requests(const std::string& method) const;
  void forgetRequests();
  void setRpcAvailable(bool available);
  /// How often RPCClient::instance was asked for `server`.
  [[nodiscard]] std::size_t rpcClientsAsked(const std::string& server) const;

  // --- events ---
  /// Calls every handler subscribed to the topic, on this thread; gives their number.
  std::size_t inject(const std::string& server, const std::string& topic,
                     const Json::Value& payload);
  /// The same on a CThread of its own, which is joined when the Bus goes.
  void injectFromThread(const std::string& server, const std::string& topic,
                        const Json::Value& payload);
  [[nodiscard]] std::vector<Published> published() const;
  [[nodiscard]] std::vector<Subscription> subscriptions() const;
  void setPublishResult(bool result);
  void setEventBusAvailable(bool available);

  // --- DDS factory ---
  [[nodiscard]] std::vector<Json::Value> factoryDocuments() const;  ///< one per initial()
  [[nodiscard]] std::size_t factoryShutdowns() const;
  void setFactoryResult(bool result);  ///< what initial() returns; default true

  // --- typed readers ---
  /// Hands `sample` (an object of the topic's type) to the live readers of the topic, on this
  /// thread; gives their number.
  std::size_t pushSample(const std::string& topic, const void* sample);
  [[nodiscard]] std::vector<ReaderInfo> readers() const;
  [[nodiscard]] std::vector<Json::Value> qosDocuments() const;  ///< one per createDDSQos
  void setSubscribersAvailable(bool available);
  /// Creation of a reader for the topic throws dds::core::Error; an empty topic lets all succeed
  /// again.
  void failReaderCreation(const std::string& topic);

 private:
  std::shared_ptr<State> state_;
};

}  // namespace scripted
