#pragma once

#include <cstdint>

#include "shm/MotionRecords.h"

namespace Robot::Motion {

/// The two channels between a client and the motion process. Everything in which they differ stands
/// in the table below; the code is the same.
enum class MotionChannel { kControl, kData };

struct MotionChannelRow {
  const char* longName;   ///< in the lines about the configuration
  const char* shortName;  ///< in all other lines
  const char* pool;
  std::uint32_t recordSize;  ///< bytes; also the size of the pool's chunks
};

inline constexpr MotionChannelRow kMotionChannels[] = {
    {"motion ctrl", "motion ctrl", "motion_lowLevel_ctrl_mem", sizeof(ShareLowLevelMotionCtrlData)},
    {"motion data", "motion", "motion_lowLevel_mem", sizeof(ShareLowLevelMotionData)}};

[[nodiscard]] constexpr const MotionChannelRow& rowOf(MotionChannel channel) {
  return kMotionChannels[channel == MotionChannel::kControl ? 0 : 1];
}

template <class Record>
inline constexpr MotionChannel kChannelOf = MotionChannel::kControl;
template <>
inline constexpr MotionChannel kChannelOf<ShareLowLevelMotionData> = MotionChannel::kData;

/// The source unit that all lines of the channels name.
inline constexpr char kChannelUnit[] = "ShareMotionAction";

}  // namespace Robot::Motion
