#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "pbase/CMutex.h"
#include "pbase/SharedMem.h"
#include "shm/Attachment.h"

namespace Pexal::PBase {

/// What a subscriber and its thread share: takes what is published and hands it to the callback.
///
/// Threading contract: run is the thread's body; the others are called on any thread and take
/// mutex_, a leaf: nothing is called back, logged or freed under it. The thread goes without it
/// from one chunk to the next; changes_ tells it when there is a reason to look again.
class Delivery {
 public:
  using Callback = SharedMemSubscriber::Callback;

  explicit Delivery(std::string fileName) : fileName_(std::move(fileName)) {}

  void run();

  /// Takes a place at the publisher that is there. The thread must run by the time this returns.
  void switchOn();
  void switchOff();
  /// Returns when no callback runs any more. Not on the thread itself.
  void awaitIdle();
  [[nodiscard]] bool isOn() const;
  void setCallback(Callback callback);
  /// Switches off for good: run returns.
  void end();

 private:
  /// What the thread goes by until changes_ tells of something new.
  struct Orders {
    std::uint32_t changes = 0;
    std::shared_ptr<Attachment> attachment;
    std::shared_ptr<const Callback> callback;
    Memory::ShmIdentity known;
  };

  void change();
  [[nodiscard]] bool awaitOrders(Orders& orders);
  void serve(const Orders& orders);
  [[nodiscard]] bool deliverNext(const Orders& orders);
  void leave(const std::shared_ptr<Attachment>& attachment);
  void look(const Orders& orders);
  [[nodiscard]] bool pause(const Orders& orders);
  [[nodiscard]] bool hasSuccessor(const Attachment& attachment) const;
  [[nodiscard]] std::shared_ptr<Attachment> join(const Memory::ShmIdentity& known);
  void logException(const char* text);

  const std::string fileName_;

  mutable CMutex mutex_;  // guards what follows, up to the blank line
  CCondition changed_;    // of changes_ and isBusy_
  bool isOn_ = false;
  bool isOver_ = false;
  bool isBusy_ = false;  // the thread may call the callback
  std::shared_ptr<const Callback> callback_;
  std::shared_ptr<Attachment> attachment_;  // while it is on and there is a publisher
  Memory::ShmIdentity known_;               // the segment whose former records aren't wanted

  std::atomic<std::uint32_t> changes_{0};  // written with mutex_
  std::atomic<int> lastRefusal_{0};        // why nothing was joined, as logged last

  // The thread's own:
  std::shared_ptr<Attachment> former_;  // left; held so that its inode isn't another file's
  bool hasThrown_ = false;
};

}  // namespace Pexal::PBase
