#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "PeerMismatch.h"
#include "RpcWire.h"

namespace Pexal::PDBus {

/// A server's way back to its clients: for each matched request writer the identity that it
/// announces, a reply writer in that client's partition, and which of its requests have been seen.
/// Replies to a client whose reply reader isn't matched yet, or that doesn't acknowledge what it
/// got, are parked: the first reply can't be lost, and nobody else waits for a client that is
/// stuck.
///
/// Threading: the server's thread only. libddsc's threads run the reply writers' listeners, which
/// count readers and call `wake`.
class RpcRoutes {
 public:
  struct Reply {
    std::uint64_t number;
    RpcStatus status;
    std::uint32_t reason;
    std::string document;
  };

  class Route {
   public:
    /// What the request writer announces; nothing for a foreign one, or one that was gone before it
    /// could be looked at.
    [[nodiscard]] const std::optional<PeerId>& client() const { return client_; }
    /// The writer isn't matched any more.
    [[nodiscard]] bool gone() const { return gone_; }
    [[nodiscard]] SequenceWindow& seen() { return seen_; }

   private:
    friend class RpcRoutes;
    std::optional<PeerId> client_;
    SequenceWindow seen_;
    bool gone_ = false;
    std::atomic<std::uint32_t> readers_{0};
    std::function<void()> wake_;
    Entity publisher_;
    Entity writer_;
    bool stuck_ = false;  ///< libddsc took no more replies; none is tried until it got them all
    std::deque<Reply> parked_;
    std::size_t parkedBytes_ = 0;
  };

  RpcRoutes(dds_entity_t participant, dds_entity_t replyTopic, std::string server,
            std::function<void()> wake);
  RpcRoutes(const RpcRoutes&) = delete;
  RpcRoutes& operator=(const RpcRoutes&) = delete;
  ~RpcRoutes();

  /// Makes routes for request writers that are new, and marks those that are gone.
  void findNew(dds_entity_t requestReader);
  /// Frees the routes of clients that are gone. Call it when none of their requests is left.
  void dropGone();
  /// True while a route of a gone client is kept because its last reply is still on its way.
  [[nodiscard]] bool hasGone() const;
  /// The route of that request writer, made on the spot (without a way back) if it was never seen.
  Route& of(dds_instance_handle_t requestWriter);
  void send(Route& route, Reply reply);
  /// Sends what was parked, as far as it goes now. Looks at clients that are stuck once per
  /// kStuckRetryMs only, without waiting for them, so that they cost the others nothing.
  void sendParked();
  /// Logs which reply readers don't match, as of PeerMismatch; their news comes with `wake`.
  void reportMismatch() { mismatch_.report(); }
  /// True while replies are parked for clients that don't acknowledge: try again soon.
  [[nodiscard]] bool hasStuck() const;

  static constexpr std::uint64_t kStuckRetryMs = 20;

 private:
  static constexpr std::int64_t kWriteMs = 1;
  static constexpr std::size_t kMaxRoutes = 4096;
  static constexpr std::size_t kMaxParked = 64;
  static constexpr std::size_t kMaxParkedBytes = 2U << 20;

  void open(Route& route);
  /// False when libddsc can't take it yet.
  [[nodiscard]] bool write(Route& route, const Reply& reply);
  void park(Route& route, Reply reply);
  static void onReadersChanged(dds_entity_t writer, dds_publication_matched_status_t status,
                               void* route);

  const dds_entity_t participant_;
  const dds_entity_t replyTopic_;
  const std::string server_;
  const std::function<void()> wake_;
  PeerMismatch mismatch_;  // of all routes
  LogLimiter log_;
  std::map<dds_instance_handle_t, std::unique_ptr<Route>> routes_;
  std::uint64_t retryAtUs_ = 0;  ///< when to look at the stuck ones next
};

}  // namespace Pexal::PDBus
