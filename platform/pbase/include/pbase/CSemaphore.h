#pragma once

#include <cstdint>

#include "pbase/CMutex.h"
#include "pbase/Export.h"

namespace Pexal::PBase {

/// A counting semaphore. Any thread may call any operation.
class PEXAL_API CSemaphore {
 public:
  explicit CSemaphore(std::uint32_t count);
  CSemaphore(const CSemaphore&) = delete;
  CSemaphore& operator=(const CSemaphore&) = delete;

  /// Adds one and wakes one waiter. Never blocks.
  void post();
  /// Takes one, waiting at most `timeoutMs` milliseconds (0: doesn't wait). False: the time ran
  /// out, nothing taken.
  [[nodiscard]] bool wait(std::uint32_t timeoutMs);
  /// Sets the count to zero.
  void clear();

 private:
  CMutex mutex_;  // guards count_
  CCondition posted_;
  std::uint32_t count_;
};

}  // namespace Pexal::PBase
