#pragma once

#include <memory>
#include <string>

#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "pbase/SharedMem.h"
#include "shm/Delivery.h"

namespace Pexal::PBase {

/// How a delivery thread is scheduled (see CThreadLite).
struct Schedule {
  int policy = 0;
  int priority = 0;
};

/// A subscriber's switches and its thread, which lives from the first kOn on.
///
/// Threading contract: as the interface says.
class RingSubscriber final : public SharedMemSubscriber {
 public:
  /// One that is never ready.
  RingSubscriber() = default;
  RingSubscriber(const std::string& name, const std::string& fileName, const Schedule& schedule);
  ~RingSubscriber() override;

  [[nodiscard]] bool isReady() const noexcept override;
  bool setMode(int mode) override;
  void setCallback(Callback callback) override;

 private:
  [[nodiscard]] bool startThread();

  const std::shared_ptr<Delivery> delivery_;
  CMutex mutex_;  // guards the thread's start
  const std::unique_ptr<CThread> thread_;
};

}  // namespace Pexal::PBase
