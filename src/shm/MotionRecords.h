#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "orvane/RobotSdk/Records.h"

/// The records of the two motion channels, byte for byte. Little-endian; who builds one clears all
/// of it first.
namespace Robot::Motion {

/// What a control record asks for.
enum MotionCtrlKind : std::uint32_t {
  kMotorCommand = 0,
  kRequireObserved = 1,
  kMaxTorque = 2,
  kMotorCommandWithTrailer = 3,  ///< also the stop, which has no motors
};

/// From the client to the motion process, on the control channel. 472 bytes.
struct ShareLowLevelMotionCtrlData {
  std::uint32_t kind;         ///< a MotionCtrlKind
  std::uint32_t waitUs;       ///< kRequireObserved: how long the client will wait, microseconds
  std::uint64_t sessionId;    ///< the work-mode session that sends it
  std::uint64_t seq;          ///< from 1 on, one more with each record of the session
  std::uint64_t timestampUs;  ///< sender's CTime in microseconds, or 0
  orvane::RobotSdk::LowLevelMotorRecord motors;  ///< the caller's, unchanged, or all zero
  orvane::RobotSdk::LowLevelTrailer trailer;  ///< the caller's; none: four bytes 0xFF, the rest 0
  std::uint32_t padding;                      ///< 0
};

/// From the motion process to the client, on the data channel. 780 bytes.
struct ShareLowLevelMotionData {
  std::uint32_t kind;
  std::uint8_t padding4[4];   ///< 0
  std::uint8_t marker;        ///< 1
  std::uint8_t filler[9];     ///< 0xFF each
  std::uint8_t reserved[48];  ///< 0
  orvane::RobotSdk::ObservedMotionRecord observed;
  std::uint8_t padding778[2];  ///< 0
};

static_assert(sizeof(ShareLowLevelMotionCtrlData) == 472);
static_assert(offsetof(ShareLowLevelMotionCtrlData, waitUs) == 4);
static_assert(offsetof(ShareLowLevelMotionCtrlData, sessionId) == 8);
static_assert(offsetof(ShareLowLevelMotionCtrlData, seq) == 16);
static_assert(offsetof(ShareLowLevelMotionCtrlData, timestampUs) == 24);
static_assert(offsetof(ShareLowLevelMotionCtrlData, motors) == 32);
static_assert(offsetof(ShareLowLevelMotionCtrlData, trailer) == 420);
static_assert(offsetof(ShareLowLevelMotionCtrlData, padding) == 468);
static_assert(sizeof(ShareLowLevelMotionData) == 780);
static_assert(offsetof(ShareLowLevelMotionData, marker) == 8);
static_assert(offsetof(ShareLowLevelMotionData, filler) == 9);
static_assert(offsetof(ShareLowLevelMotionData, reserved) == 18);
static_assert(offsetof(ShareLowLevelMotionData, observed) == 66);
static_assert(offsetof(ShareLowLevelMotionData, padding778) == 778);
static_assert(std::is_trivially_copyable_v<ShareLowLevelMotionCtrlData> &&
              std::is_trivially_copyable_v<ShareLowLevelMotionData>);

}  // namespace Robot::Motion
