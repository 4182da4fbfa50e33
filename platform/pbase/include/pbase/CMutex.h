#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// A plain, non-recursive mutex; satisfies the standard's Lockable, so std::lock_guard and
/// std::unique_lock work on it.
class PEXAL_API CMutex {
 public:
  CMutex() = default;
  CMutex(const CMutex&) = delete;
  CMutex& operator=(const CMutex&) = delete;

  void lock() { native_.lock(); }
  void unlock() { native_.unlock(); }
  bool try_lock() { return native_.try_lock(); }

 private:
  friend class CCondition;
  std::mutex native_;
};

/// A condition variable on the platform's clock (monotonic, or the VirtualClock in tests). Every
/// wait has a predicate and a deadline.
class PEXAL_API CCondition {
 public:
  CCondition();
  ~CCondition();
  CCondition(const CCondition&) = delete;
  CCondition& operator=(const CCondition&) = delete;

  /// Waits until `ready()` holds or CTime::getCurrentMicroSecond() reaches `deadlineUs` (from half
  /// of the type's range on: never). The lock is held while `ready` runs and on return. Returns the
  /// last value of `ready()`.
  bool waitUntil(std::unique_lock<CMutex>& lock, std::uint64_t deadlineUs,
                 const std::function<bool()>& ready);
  void notifyOne() noexcept;
  void notifyAll() noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Pexal::PBase
