#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PeerMismatch.h"
#include "RpcWire.h"
#include "pbase/CMutex.h"

namespace Pexal::PDBus {

/// A client's way to the server of one device: a request writer in the device's partition, a reply
/// reader in a partition of the channel's own, and the calls that wait for their replies.
///
/// Threading: call and send from any thread. libddsc's receive threads run the listeners, which
/// take a reply, hand it to the waiting caller and wake that caller directly; they neither log nor
/// block. mutex_ is a leaf: no DDS call, no log and no other lock under it.
class RpcChannel {
 public:
  struct Request {
    const std::string& service;
    const std::string& method;
    const std::string& document;
  };
  struct Answer {
    RpcStatus status = RpcStatus::kTimeout;
    ReplySample reply;  ///< when the status is kOk: what came, its own status unchecked
  };

  /// Null, with the reason logged, when DDS refuses.
  static std::unique_ptr<RpcChannel> create(dds_entity_t participant, const std::string& server,
                                            const std::string& partition);
  RpcChannel(const RpcChannel&) = delete;
  RpcChannel& operator=(const RpcChannel&) = delete;
  ~RpcChannel();

  /// Waits for the server to be matched in both directions, sends, waits for the reply.
  Answer call(const Request& request, std::uint64_t deadlineUs);
  /// kNoServer when none is matched at this moment. Blocks at most 500 ms.
  RpcStatus send(const Request& request);

  /// Ends all waiting with kStopped.
  void beginStop();
  /// Has one-way requests that were sent reach a server that is still matched.
  void awaitOneWayAcks(std::uint64_t deadlineUs);
  /// The writer, to be deleted together with those of other channels. Nobody may be in call or
  /// send.
  [[nodiscard]] Entity releaseWriter() { return std::move(writer_); }

 private:
  static constexpr std::int64_t kWriteMs = 20;  // one attempt
  static constexpr std::uint64_t kOneWayMs = 480;

  /// One waiting call. Reused, never freed before the channel: a listener may still notify it after
  /// the caller has left.
  struct Pending {
    PBase::CCondition finished;
    std::uint64_t number = 0;
    std::uint64_t sentAtMatch = 0;
    bool done = false;
    Answer answer;
  };
  /// A matched server; `match` rises, so that a call can tell whether a server was there when it
  /// was sent.
  struct Server {
    dds_instance_handle_t handle;
    std::uint64_t match;
  };

  explicit RpcChannel(const std::string& server);
  bool open(dds_entity_t participant, const std::string& server, const std::string& partition);
  /// Tries until libddsc takes the request or the deadline is there.
  RpcStatus write(const Request& request, std::uint64_t number, bool oneWay,
                  std::uint64_t deadlineUs);
  Pending& beginPending();
  Answer endPending(Pending& pending);
  void endCallsOfLostServers();
  void reportPeers();

  static void onServersChanged(dds_entity_t writer, dds_publication_matched_status_t status,
                               void* channel);
  static void onReplyWritersChanged(dds_entity_t reader, dds_subscription_matched_status_t status,
                                    void* channel);
  static void onReply(dds_entity_t reader, void* channel);

  const PeerId id_;
  PeerMismatch requestPeers_;
  PeerMismatch replyPeers_;
  Entity requestTopic_;
  Entity replyTopic_;
  Entity subscriber_;
  Entity publisher_;
  Entity reader_;
  Entity writer_;
  std::atomic<bool> stopped_{false};  // set under mutex_
  std::atomic<bool> oneWaySent_{false};
  std::atomic<std::uint32_t> strayReplies_{0};
  LogLimiter strayLog_;

  PBase::CMutex mutex_;  // guards what follows
  PBase::CCondition matchChanged_;
  std::vector<Server> servers_;
  std::uint64_t lastMatch_ = 0;
  std::uint32_t replyWriters_ = 0;
  std::uint64_t lastNumber_ = 0;
  std::vector<std::unique_ptr<Pending>> pool_;
  std::vector<Pending*> idle_;
  std::vector<Pending*> waiting_;
};

}  // namespace Pexal::PDBus
