#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
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

[[nodiscard]] Reply accepted(Json::Value params = {});  ///< "result" true
[[nodiscard]] Reply refused(std::uint32_t reason = 0, Json::Value params = {});
[[nodiscard]] Reply transportFailure(std::uint32_t status);

/// Runs on the calling SDK thread when the request is sent, with no lock held: it may inject events
/// or call the client, so that things happen "during the call".
using RpcHandler = std::function<Reply(const Request&)>;

/// Which parts of the platform are there and work.
struct Behaviour {
  bool rpc = true;
  bool eventBus = true;
  bool publish = true;
  bool subscribers = true;
  bool factory = true;             ///< what its initial() returns
  std::string failingReader = {};  ///< the topic whose reader's creation throws dds::core::Error
};

struct Published {
  std::string server;
  std::string topic;
  Json::Value payload;
  std::uint32_t openMs = 0;
};

/// What the SDK did with the platform so far.
struct Seen {
  std::vector<Request> requests;
  std::map<std::string, std::size_t> rpcClients;  ///< how often each server's was asked for
  std::vector<Published> published;
  std::vector<Json::Value> factoryDocuments;  ///< one per initial()
  std::size_t factoryShutdowns = 0;
  std::vector<Json::Value> qosDocuments;  ///< one per createDDSQos
};

/// A typed reader that the SDK made.
struct ReaderInfo {
  std::string domain;
  std::string topic;
  std::function<bool(std::string_view userData)> takesWriter;  ///< empty: takes all
  bool removed = false;
  std::size_t attached = 0;  ///< wait sets that it is attached to now
};

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

  void behave(const Behaviour& behaviour);
  void onRequest(RpcHandler handler);  ///< the default accepts everything
  /// Calls every handler subscribed to the topic, on this thread.
  void inject(const std::string& server, const std::string& topic, const Json::Value& payload);
  /// The same on a CThread of its own, which is joined when the Bus goes.
  void injectFromThread(const std::string& server, const std::string& topic,
                        const Json::Value& payload);
  /// Hands `sample` (an object of the topic's type) to the live readers of the topic, on this
  /// thread; gives their number.
  std::size_t pushSample(const std::string& topic, const void* sample);

  [[nodiscard]] Seen seen() const;
  [[nodiscard]] std::vector<Request> requests(const std::string& method = "") const;
  void forgetRequests();
  [[nodiscard]] std::vector<std::string> subscribedTopics() const;
  [[nodiscard]] std::vector<ReaderInfo> readers() const;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace scripted
