#pragma once

#include <ctime>

#include <cstdint>

namespace robotctl {

/// Time stamps of a recording: nanoseconds since 1970, taken from the wall clock when this is made
/// and going on with the monotonic clock, so that they never jump. Any thread.
class RecordClock {
 public:
  [[nodiscard]] std::uint64_t now() const { return offsetNs_ + read(CLOCK_MONOTONIC); }

 private:
  static std::uint64_t read(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
  }

  const std::uint64_t offsetNs_ = read(CLOCK_REALTIME) - read(CLOCK_MONOTONIC);
};

}  // namespace robotctl
