#pragma once

#include <dds/dds.h>

#include <cstdint>

namespace dds::core::status {

/// A set of statuses, numbered as in the DDS standard (data available is 0x400). libddsc numbers
/// them otherwise; to_ddsc() translates.
class StatusMask {
 public:
  constexpr StatusMask() noexcept = default;
  constexpr explicit StatusMask(std::uint32_t bits) noexcept : bits_(bits) {}

  static constexpr StatusMask none() noexcept { return {}; }
  static constexpr StatusMask inconsistent_topic() noexcept { return StatusMask(1U << 0); }
  static constexpr StatusMask offered_deadline_missed() noexcept { return StatusMask(1U << 1); }
  static constexpr StatusMask requested_deadline_missed() noexcept { return StatusMask(1U << 2); }
  static constexpr StatusMask offered_incompatible_qos() noexcept { return StatusMask(1U << 5); }
  static constexpr StatusMask requested_incompatible_qos() noexcept { return StatusMask(1U << 6); }
  static constexpr StatusMask sample_lost() noexcept { return StatusMask(1U << 7); }
  static constexpr StatusMask sample_rejected() noexcept { return StatusMask(1U << 8); }
  static constexpr StatusMask data_on_readers() noexcept { return StatusMask(1U << 9); }
  static constexpr StatusMask data_available() noexcept { return StatusMask(1U << 10); }
  static constexpr StatusMask liveliness_lost() noexcept { return StatusMask(1U << 11); }
  static constexpr StatusMask liveliness_changed() noexcept { return StatusMask(1U << 12); }
  static constexpr StatusMask publication_matched() noexcept { return StatusMask(1U << 13); }
  static constexpr StatusMask subscription_matched() noexcept { return StatusMask(1U << 14); }

  [[nodiscard]] constexpr std::uint32_t to_ulong() const noexcept { return bits_; }
  friend constexpr StatusMask operator|(StatusMask a, StatusMask b) noexcept {
    return StatusMask(a.bits_ | b.bits_);
  }
  friend constexpr StatusMask operator&(StatusMask a, StatusMask b) noexcept {
    return StatusMask(a.bits_ & b.bits_);
  }
  friend constexpr bool operator==(StatusMask a, StatusMask b) noexcept {
    return a.bits_ == b.bits_;
  }

  /// libddsc's mask; bits that name no status are left out.
  [[nodiscard]] constexpr std::uint32_t to_ddsc() const noexcept {
    struct Row {
      StatusMask standard;
      std::uint32_t ddsc;
    };
    constexpr Row kRows[] = {{inconsistent_topic(), DDS_INCONSISTENT_TOPIC_STATUS},
                             {offered_deadline_missed(), DDS_OFFERED_DEADLINE_MISSED_STATUS},
                             {requested_deadline_missed(), DDS_REQUESTED_DEADLINE_MISSED_STATUS},
                             {offered_incompatible_qos(), DDS_OFFERED_INCOMPATIBLE_QOS_STATUS},
                             {requested_incompatible_qos(), DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS},
                             {sample_lost(), DDS_SAMPLE_LOST_STATUS},
                             {sample_rejected(), DDS_SAMPLE_REJECTED_STATUS},
                             {data_on_readers(), DDS_DATA_ON_READERS_STATUS},
                             {data_available(), DDS_DATA_AVAILABLE_STATUS},
                             {liveliness_lost(), DDS_LIVELINESS_LOST_STATUS},
                             {liveliness_changed(), DDS_LIVELINESS_CHANGED_STATUS},
                             {publication_matched(), DDS_PUBLICATION_MATCHED_STATUS},
                             {subscription_matched(), DDS_SUBSCRIPTION_MATCHED_STATUS}};
    std::uint32_t mask = 0;
    for (const Row& row : kRows) {
      if ((bits_ & row.standard.bits_) != 0) mask |= row.ddsc;
    }
    return mask;
  }

 private:
  std::uint32_t bits_ = 0;
};

}  // namespace dds::core::status
