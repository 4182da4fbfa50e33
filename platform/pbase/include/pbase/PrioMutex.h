#pragma once

#include <pthread.h>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// A plain, non-recursive mutex with priority inheritance: whoever holds it runs at least at the
/// priority of the most urgent thread that waits for it, so an urgent thread is never held up by
/// one of middle priority. Satisfies the standard's Lockable.
class PEXAL_API PrioMutex {
 public:
  /// Where the system lacks priority inheritance it is an ordinary mutex.
  PrioMutex() noexcept;
  ~PrioMutex();
  PrioMutex(const PrioMutex&) = delete;
  PrioMutex& operator=(const PrioMutex&) = delete;

  /// Blocks until the mutex is free. Locking it twice on one thread is a fault of the caller.
  void lock() noexcept;
  void unlock() noexcept;
  [[nodiscard]] bool try_lock() noexcept;

 private:
  pthread_mutex_t native_;
};

}  // namespace Pexal::PBase
