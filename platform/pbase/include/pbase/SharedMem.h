#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// Chunks of shared memory that a publisher hands to the readers of its channel. There should be
/// two more than its subscribers hold on to together: a delivery holds one.
struct SharedMemPool {
  std::string name;             ///< for the log
  std::uint32_t chunkSize = 0;  ///< bytes of payload, 1 to 1 MiB
  std::int32_t count = 0;       ///< chunks, 1 to 1024
};

/// One chunk: on the publisher's side between loan and publish, on a reader's while it holds it.
class PEXAL_API SharedMemBuffer {
 public:
  [[nodiscard]] void* payload() noexcept { return payload_; }
  [[nodiscard]] const void* payload() const noexcept { return payload_; }
  /// Bytes of the payload that are used.
  [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
  /// More than the capacity sets the capacity.
  void setSize(std::uint32_t size) noexcept { size_ = size < capacity_ ? size : capacity_; }
  [[nodiscard]] std::uint32_t capacity() const noexcept { return capacity_; }
  /// The chunk's number on its channel, from 1 on; a gap tells of chunks that were missed. 0 before
  /// it is published. A new publisher begins at 1 again.
  [[nodiscard]] std::uint64_t sequence() const noexcept { return sequence_; }

 protected:
  SharedMemBuffer() = default;
  ~SharedMemBuffer() = default;

  void* payload_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
  std::uint64_t sequence_ = 0;
};

class SharedMemPublisher;

/// A loaned chunk; given back when it is dropped without being published.
struct PEXAL_API SharedMemGiveBack {
  SharedMemPublisher* publisher = nullptr;
  void operator()(SharedMemBuffer* chunk) const noexcept;
};
using SharedMemLoan = std::unique_ptr<SharedMemBuffer, SharedMemGiveBack>;

/// The one writing end of a channel. What is published reaches every subscriber that lives, in
/// order; a chunk is used again when all of them are past it. A subscriber that died, or that let
/// the publisher run out of chunks for 5 ms without taking one, is dropped: it loses what it hasn't
/// taken, and goes on with the oldest that is still there once it moves again. What it holds stays
/// its own while its process lives.
///
/// It ends in good order by its destructor and may be killed at any point: subscribers go on with
/// the next publisher either way. Loans must not outlive it. If somebody cuts its file short it
/// begins a new one, as a new publisher would.
///
/// Threading contract: loan, publish and the drop of a loan by one thread at a time, while the
/// others run on none. They take no mutex and don't allocate; publish makes a system call only when
/// a subscriber sleeps, loan only when no chunk is free.
class PEXAL_API SharedMemPublisher {
 public:
  enum class Status {
    kReaderGone,     ///< a subscriber's process ended without leaving
    kReaderStalled,  ///< a subscriber was dropped since it took nothing
  };
  using StatusCallback = std::function<void(Status)>;

  virtual ~SharedMemPublisher();
  SharedMemPublisher(const SharedMemPublisher&) = delete;
  SharedMemPublisher& operator=(const SharedMemPublisher&) = delete;

  [[nodiscard]] virtual bool isReady() const noexcept = 0;
  /// Called on the loaning thread, from inside loan. An empty one removes it. What it throws is
  /// logged.
  virtual void setStatusCallback(StatusCallback callback) = 0;
  /// A chunk for `size` bytes (its size is set to that). While there is none it spins, for 50
  /// microseconds at the most. Empty, with errno: EAGAIN every chunk is held or awaited by a
  /// subscriber that lives (try again in a millisecond), ENOMEM `size` is more than a chunk holds,
  /// EINVAL `flags` isn't 0, ENOTCONN not ready.
  [[nodiscard]] virtual SharedMemLoan loan(std::uint32_t size, std::uint32_t flags) noexcept = 0;
  /// Hands the chunk out. False when it is empty or another publisher's, or when its memory was
  /// lost to somebody who cut the file short; then it is given back.
  virtual bool publish(SharedMemLoan chunk) noexcept = 0;

 protected:
  SharedMemPublisher() = default;

 private:
  friend struct SharedMemGiveBack;
  virtual void giveBack(SharedMemBuffer* chunk) noexcept = 0;
};

/// A reading end of a channel. It needs no publisher: it finds one when it appears, and its
/// successors. Of a publisher that was there first it takes what comes from now on; of a later one
/// also what it published before it was found (within about 10 ms, or 100 ms when the former one
/// was killed), as far as that is still there.
///
/// Threading contract: any thread. The thread "shm:" + name delivers; it holds no lock meanwhile.
/// The destructor and setMode(kOff) wait for the end of a delivery, however long it takes, unless
/// they run inside it; a publisher, living or dead, can't hold them up. A delivery takes no mutex
/// and doesn't allocate (unless weak pointers to former chunks are kept); the thread makes a system
/// call only to sleep, and to look for a publisher.
class PEXAL_API SharedMemSubscriber {
 public:
  static constexpr int kOff = 0;
  static constexpr int kOn = 1;
  using Callback = std::function<void(const std::shared_ptr<SharedMemBuffer>&)>;

  virtual ~SharedMemSubscriber();
  SharedMemSubscriber(const SharedMemSubscriber&) = delete;
  SharedMemSubscriber& operator=(const SharedMemSubscriber&) = delete;

  /// True once it is switched on.
  [[nodiscard]] virtual bool isReady() const noexcept = 0;
  /// kOn begins to take chunks: what is published after its return by a publisher that is there is
  /// delivered. kOff ends it. False for another mode, when no thread could be had, or when the node
  /// wasn't ready.
  virtual bool setMode(int mode) = 0;
  /// Gets every chunk, in order. Who keeps the pointer keeps the chunk from the publisher, for as
  /// long as this process lives; the pointer may outlive the subscriber. Chunks that come while
  /// there is no callback are left out. The former callback may be running still when this returns.
  /// What a callback throws is logged, once.
  virtual void setCallback(Callback callback) = 0;

 protected:
  SharedMemSubscriber() = default;
};

/// A process's membership in a domain.
class PEXAL_API SharedMemNode {
 public:
  virtual ~SharedMemNode();
  SharedMemNode(const SharedMemNode&) = delete;
  SharedMemNode& operator=(const SharedMemNode&) = delete;

  [[nodiscard]] virtual bool isReady() const noexcept = 0;
  /// Becomes the publisher of channel `name`, with chunks of the pool that was declared under
  /// `pool` before the node was made; the first one when `pool` is empty. Without such a pool every
  /// loan fails with ENOMEM. Never null; not ready, with a line in the log, when the name is bad,
  /// another publisher of the channel lives, or the system refuses.
  [[nodiscard]] virtual std::shared_ptr<SharedMemPublisher> publisher(
      const std::string& name, const std::string& pool = {}) = 0;
  /// A subscriber of channel `name`, switched off. Never null.
  [[nodiscard]] virtual std::shared_ptr<SharedMemSubscriber> subscriber(
      const std::string& name) = 0;

 protected:
  SharedMemNode() = default;
};

/// A named group of channels between the processes of this machine. Names of domains and channels:
/// letters, digits, '_', '-' or '.', at most 64; a domain's may be empty.
///
/// Each publisher owns one file in /dev/shm (mode 0600): its chunks, a ring of what it published,
/// and a place for each of up to 16 subscribers (further ones wait for a place). Both sides must
/// run as the same user. The files stay when their publishers end.
///
/// Threading contract: any thread, nodes included; no operation waits for another process.
class PEXAL_API SharedMemDomain {
 public:
  virtual ~SharedMemDomain();
  SharedMemDomain(const SharedMemDomain&) = delete;
  SharedMemDomain& operator=(const SharedMemDomain&) = delete;

  /// This process's object for the domain, made on first use. Empty when the name is bad.
  [[nodiscard]] static std::shared_ptr<SharedMemDomain> instance(const std::string& name);

  /// For the nodes made from now on. False, with a line in the log, when a pool has no name or a
  /// figure out of its range, or was declared with other figures before; then none is declared.
  virtual bool declarePools(const std::vector<SharedMemPool>& pools) = 0;
  /// `schedule`: how delivery threads run, {"policy": 0 the creator's, 1 first in first out, 2
  /// round robin, "priority": 1 to 99, 0 with policy 0}; null or an absent key: 0. False, with a
  /// line in the log, when it is anything else. Again after a success: true, and nothing changes.
  [[nodiscard]] virtual bool initial(const Json::Value& schedule) = 0;
  /// Attaches this process under a name, which is for the log. Not ready before initial succeeded
  /// and when the name is bad. Never null.
  [[nodiscard]] virtual std::shared_ptr<SharedMemNode> createNode(const std::string& name) = 0;

 protected:
  SharedMemDomain() = default;
};

}  // namespace Pexal::PBase
