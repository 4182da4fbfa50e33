#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

/// The plain records that cross the public boundary. Little-endian; their sizes and offsets are
/// part of the library's binary interface.
///
/// Figures: the library copies what the robot's boards publish, without conversion, so units,
/// frames and ranges are the robot's. Those given here are the virtual robot's. Its frames: the
/// body frame is fixed to the trunk, x forward, y to the left, z up; the world frame has its origin
/// and its x axis where the body was when the odometry began, z up. Joints turn positive about y
/// (thigh, calf) and x (hip). Flags named `error` are 0 when the value can be trusted.
namespace orvane::RobotSdk {

/// Most motors a record can hold.
inline constexpr std::uint32_t kMaxMotors = 16;

/// One entry of a MotorLayout.
struct MotorLayoutEntry {
  std::uint16_t limbNo;   ///< limb number; 0 when the robot gave none
  std::uint16_t jointNo;  ///< joint number within the limb; 0 when the robot gave none
  char name[28];  ///< joint name, at most 27 bytes, always NUL-terminated; empty when there is none
};

/// Which motors the robot has, in the order of its observed records. 516 bytes.
struct MotorLayout {
  std::uint32_t motorNum;               ///< number of valid entries, 0 to 16
  MotorLayoutEntry motors[kMaxMotors];  ///< entries from motorNum on are all zero
};

/// One motor's low-level command. The motor's torque is torque + kpGain * (position - measured
/// position) + kdGain * (velocity - measured velocity).
struct LowLevelMotor {
  float position;         ///< position command, rad
  float velocity;         ///< velocity command, rad/s
  float kpGain;           ///< proportional (position) gain, N m/rad
  float kdGain;           ///< derivative (velocity) gain, N m s/rad
  float torque;           ///< torque command, or the limit for publishMaxTorque, N m
  std::uint16_t limbsNo;  ///< limb number of the motor
  std::uint16_t jointNo;  ///< joint number of the motor
};

/// The argument of publishMotorAction and publishMaxTorque. 388 bytes.
struct LowLevelMotorRecord {
  std::uint32_t motorNum;  ///< number of valid entries, 1 to 16
  LowLevelMotor motor[kMaxMotors];
};

/// The optional trailer of a motor command; opaque, copied unchanged.
struct LowLevelTrailer {
  std::uint8_t bytes[48];
};

// The observed motion record and its parts are byte-packed: take members by value, not by
// reference.
#pragma pack(push, 1)

struct ObservedVector3 {
  std::uint8_t error;
  float x;
  float y;
  float z;
};

struct ObservedQuaternion {
  std::uint8_t error;
  float w;  ///< the scalar part comes first
  float x;
  float y;
  float z;
};

/// The inertial unit, in the body frame.
struct ObservedImu {
  float temp;                     ///< degrees Celsius
  ObservedVector3 accel;          ///< specific force, m/s^2 (at rest: +9.81 on z)
  ObservedVector3 gyro;           ///< angular velocity, rad/s
  ObservedVector3 mag;            ///< magnetic field, microtesla
  ObservedVector3 euler;          ///< roll (x), pitch (y), yaw (z), rad; yaw in (-pi, pi]
  ObservedQuaternion quaternion;  ///< rotation from body to world, of norm 1
};

/// The battery.
struct ObservedPower {
  float power;          ///< charge, percent
  float health;         ///< percent
  float temper;         ///< temperature, degrees Celsius
  float chargeCurrent;  ///< A, negative while discharging
  float chargeVoltage;  ///< V
};

/// One motor as it is.
struct ObservedMotor {
  std::uint8_t enable;    ///< 1: the motor is driven
  std::uint8_t online;    ///< 1: the motor answers
  std::uint8_t error;     ///< the motor's own error number, 0: none
  float position;         ///< rad
  float velocity;         ///< rad/s
  float torque;           ///< N m
  float temp;             ///< degrees Celsius
  float voltage;          ///< V
  float lossRate;         ///< share of lost messages to the motor, 0 to 1
  float maxTorque;        ///< N m
  std::uint16_t limbsNo;  ///< limb: 0 front left, 1 front right, 2 rear left, 3 rear right
  std::uint16_t jointNo;  ///< joint: 0 hip, 1 thigh, 2 calf
};

/// The hand-held remote control, as it last was. 52 bytes; all zero when `included` is 0. Buttons
/// are 1 while they are pressed. Filled by the low-level client on an external host only.
struct ObservedRemoteControl {
  std::uint8_t included;  ///< 1: a sample came within ORVANE_MOTION_TRC_STALE_MS
  std::uint8_t reserved[3];
  std::uint64_t controller;  ///< which remote control, as it names itself
  std::uint8_t back;
  std::uint8_t start;
  std::uint8_t lb;  ///< left shoulder
  std::uint8_t rb;  ///< right shoulder
  std::uint8_t f1;
  std::uint8_t f2;
  std::uint8_t a;
  std::uint8_t b;
  std::uint8_t x;
  std::uint8_t y;
  std::uint8_t up;
  std::uint8_t down;
  std::uint8_t left;
  std::uint8_t right;
  std::uint8_t ls;  ///< left stick, pressed
  std::uint8_t rs;  ///< right stick, pressed
  float stickLX;    ///< sticks: -1 to 1
  float stickLY;
  float stickRX;
  float stickRY;
  float triggerL;  ///< triggers: 0 to 1
  float triggerR;
};

/// Observed motion: joints, inertial unit, power. 712 bytes. On an external host the library builds
/// it as said below; on the robot's board it is the motion process's own, byte for byte.
struct ObservedMotionRecord {
  std::uint8_t reserved0;  ///< 0
  std::uint8_t valid;      ///< 1 in every record that the library hands out
  std::uint8_t reserved2;  ///< 0
  /// As the robot sent it, but never below 0. May exceed 16; motor[] holds 16 at most.
  std::int32_t motorNum;
  ObservedImu imu;
  ObservedRemoteControl remoteControl;  ///< all zero in records of the high-level client
  ObservedPower power;
  ObservedMotor motor[kMaxMotors];  ///< entries that the robot didn't fill are zero
};

#pragma pack(pop)

/// Satellite positioning; the virtual robot has none (`valid` 0).
struct ObservedGps {
  std::uint32_t valid;  ///< 0: none of the other fields means anything
  float speed;          ///< as the receiver gives it
  std::int32_t level;
  std::int32_t rssi;
  float lat;  ///< latitude
  float lng;  ///< longitude
};

/// Bearing of a paired radio beacon; the virtual robot has none (`valid` 0).
struct ObservedUwb {
  std::uint8_t valid;  ///< 0: none of the other fields means anything
  std::uint8_t pairState;
  std::int16_t rssi;
  std::uint16_t pitch;
  std::uint16_t azimuth;
  std::uint32_t distance;
};

/// Where the body is, by its own reckoning, in the world frame.
struct ObservedOdometry {
  std::uint8_t valid;  ///< 0: none of the other fields means anything
  std::uint8_t padding[3];
  float position[3];    ///< m
  float velocity[3];    ///< m/s
  float yaw;            ///< rad, in (-pi, pi]
  float yawSpeed;       ///< rad/s
  std::uint32_t epoch;  ///< changes whenever the origin does
};

/// Observed sensors: GPS, UWB beacon, odometry. 76 bytes.
struct ObservedSensorRecord {
  ObservedGps gps;
  ObservedUwb uwb;
  ObservedOdometry odom;
};

static_assert(sizeof(MotorLayoutEntry) == 32 && sizeof(MotorLayout) == 516);
static_assert(sizeof(LowLevelMotor) == 24 && sizeof(LowLevelMotorRecord) == 388);
static_assert(sizeof(LowLevelTrailer) == 48);
static_assert(sizeof(ObservedPower) == 20 && sizeof(ObservedMotor) == 35);
static_assert(sizeof(ObservedRemoteControl) == 52);
static_assert(offsetof(ObservedRemoteControl, controller) == 4);
static_assert(offsetof(ObservedRemoteControl, back) == 12);
static_assert(offsetof(ObservedRemoteControl, rs) == 27);
static_assert(offsetof(ObservedRemoteControl, stickLX) == 28);
static_assert(offsetof(ObservedRemoteControl, triggerR) == 48);
static_assert(sizeof(ObservedMotionRecord) == 712);
static_assert(offsetof(ObservedMotionRecord, motorNum) == 3);
static_assert(offsetof(ObservedMotionRecord, imu) == 7);
static_assert(offsetof(ObservedMotionRecord, imu.gyro) == 24);
static_assert(offsetof(ObservedMotionRecord, imu.quaternion) == 63);
static_assert(offsetof(ObservedMotionRecord, remoteControl) == 80);
static_assert(offsetof(ObservedMotionRecord, power) == 132);
static_assert(offsetof(ObservedMotionRecord, motor) == 152);
static_assert(sizeof(ObservedSensorRecord) == 76);
static_assert(offsetof(ObservedSensorRecord, uwb) == 24);
static_assert(offsetof(ObservedSensorRecord, odom) == 36);
static_assert(offsetof(ObservedSensorRecord, odom.yaw) == 64);
static_assert(std::is_trivially_copyable_v<ObservedMotionRecord> &&
              std::is_trivially_copyable_v<ObservedSensorRecord>);

}  // namespace orvane::RobotSdk
