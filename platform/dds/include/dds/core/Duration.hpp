#pragma once

#include <dds/dds.h>

#include <cstdint>

namespace dds::core {

/// A span of time: seconds and nanoseconds (0 to 999999999).
class Duration {
 public:
  constexpr Duration() noexcept = default;
  constexpr Duration(std::int32_t sec, std::uint32_t nanosec = 0) noexcept
      : sec_(sec), nanosec_(nanosec) {}

  static constexpr Duration zero() noexcept { return {}; }
  /// Longer than any wait.
  static constexpr Duration infinite() noexcept { return {INT32_MAX, UINT32_MAX}; }
  static constexpr Duration from_millisecs(std::int64_t ms) noexcept {
    return {static_cast<std::int32_t>(ms / 1000),
            static_cast<std::uint32_t>(ms % 1000 * 1'000'000)};
  }

  [[nodiscard]] constexpr std::int32_t sec() const noexcept { return sec_; }
  [[nodiscard]] constexpr std::uint32_t nanosec() const noexcept { return nanosec_; }

  friend constexpr bool operator==(const Duration& a, const Duration& b) noexcept {
    return a.sec_ == b.sec_ && a.nanosec_ == b.nanosec_;
  }

  /// In libddsc's form: nanoseconds. A negative span counts as zero.
  [[nodiscard]] constexpr dds_duration_t to_ddsc() const noexcept {
    if (*this == infinite()) return DDS_INFINITY;
    return sec_ < 0 ? 0 : sec_ * std::int64_t{1'000'000'000} + nanosec_;
  }
  static constexpr Duration from_ddsc(dds_duration_t ns) noexcept {
    if (ns / 1'000'000'000 >= INT32_MAX) return infinite();
    return {static_cast<std::int32_t>(ns / 1'000'000'000),
            static_cast<std::uint32_t>(ns % 1'000'000'000)};
  }

 private:
  std::int32_t sec_ = 0;
  std::uint32_t nanosec_ = 0;
};

}  // namespace dds::core
