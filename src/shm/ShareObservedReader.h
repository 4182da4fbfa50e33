#pragma once

#include <cstdint>
#include <memory>

#include "orvane/RobotSdk/Records.h"
#include "pbase/CShmTripleBuffer.h"

namespace Robot::Motion {

/// A latest-value buffer that the motion process keeps up to date.
struct ObservedBuffer {
  const char* name;
  std::uint32_t recordSize;  ///< bytes
};

inline constexpr ObservedBuffer kMotionObserved{"motion_observed",
                                                sizeof(orvane::RobotSdk::ObservedMotionRecord)};
inline constexpr ObservedBuffer kSensorObserved{"motion_sensor_observed",
                                                sizeof(orvane::RobotSdk::ObservedSensorRecord)};

/// A reader of one such buffer.
///
/// Threading contract: any thread, any number at once; nothing blocks and nothing takes a mutex.
struct ShareObservedReader {
  std::uint32_t size = 0;  ///< of the record, in bytes
  Pexal::Memory::CShmTripleBuffer buffer;

  /// Empty when there is no such buffer, it isn't to be trusted, or its records are shorter than
  /// what they should be. The caller logs that, under the name of its own unit.
  [[nodiscard]] static std::shared_ptr<ShareObservedReader> open(const ObservedBuffer& which);

  /// The number of the newest record; 0: none was ever written.
  [[nodiscard]] std::uint64_t latestSeq() noexcept { return buffer.latestSeq(); }
  /// Copies the newest record (`size` bytes) and gives its number. False: there is none, or the
  /// writer was faster this time.
  [[nodiscard]] bool get(void* destination, std::uint64_t& seq) noexcept {
    return buffer.get(destination, size, nullptr, &seq) > 0;
  }
};

}  // namespace Robot::Motion
