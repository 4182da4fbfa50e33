#pragma once

namespace orvane::RobotSdk {

/// Marks the calling thread as inside an application callback while it lives. Every call of an
/// application callback (connect, event, observed, discover) is made inside one, so that an
/// operation called from the callback knows that it must not wait for SDK threads.
class CallbackScope {
 public:
  CallbackScope() noexcept { ++depth(); }
  ~CallbackScope() { --depth(); }
  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;

  /// True on a thread that runs an application callback now.
  [[nodiscard]] static bool active() noexcept { return depth() > 0; }

 private:
  static int& depth() noexcept {
    thread_local int value = 0;
    return value;
  }
};

}  // namespace orvane::RobotSdk
