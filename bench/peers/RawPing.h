#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "harness/Role.h"
#include "peers/RawDds.h"

namespace bench {

/// The raw baseline of a request's server. {"domain", "topic", "reply": text, "keepsLast": true for
/// startQos}. A listener queues the requests, one thread answers.
///
/// Threading: libddsc's receive thread runs the listener; mutex_ guards the queue and stopping_.
class RawServer final : public ServerRole {
 public:
  explicit RawServer(const Json::Value& arguments);
  ~RawServer() override;

 private:
  static void onRequest(dds_entity_t reader, void* server);
  void serve();

  const std::string reply_;
  RawParticipant participant_;
  dds_entity_t reader_ = 0;
  dds_entity_t writer_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::pair<std::uint64_t, std::string>> requests_;
  bool stopping_ = false;
  std::thread thread_;
};

/// The raw baseline of a request's client. {"domain", "topic", "request": text, "wait": "condition"
/// (a listener takes the reply and signals the waiting caller) or "waitset" (the caller waits in a
/// wait set and takes the reply itself)}. It waits for its server when it is made.
///
/// Threading: the role's thread asks; libddsc's receive thread runs the listener; mutex_ guards
/// awaited_, reply_ and done_.
class RawClient final : public AskingRole {
 public:
  explicit RawClient(const Json::Value& arguments);
  ~RawClient() override;

 private:
  bool ask() override;
  bool awaitSignal();
  bool awaitInWaitSet();
  void awaitServer() const;
  void takeReplies();
  static void onReply(dds_entity_t reader, void* client);

  const std::string request_;
  const bool waitSetMode_;
  RawParticipant participant_;
  dds_entity_t reader_ = 0;
  dds_entity_t writer_ = 0;
  dds_entity_t waitSet_ = 0;
  std::mutex mutex_;
  std::condition_variable replied_;
  std::uint64_t awaited_ = 0;
  std::string reply_;
  bool done_ = false;
};

/// The raw baseline of the library's start: from nothing to the first answer of a server that runs
/// already. {"domain", "topic"}; {"do": "start"} gives {"ns": [...]}, once.
class RawStarter final : public Role {
 public:
  explicit RawStarter(const Json::Value& arguments);
  Json::Value handle(const Json::Value& command) override;

 private:
  const std::uint32_t domain_;
  const std::string topic_;
};

}  // namespace bench
