#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

/// The plain records that cross the public boundary. Little-endian; their sizes and offsets are part
/// of the library's binary interface. Units and value ranges are those that the robot's boards
/// publish; the library copies the values unchanged.
namespace orvane::RobotSdk {

/// Most motors a record can hold.
inline constexpr std::uint32_t kMaxMotors = 16;

/// One entry of a MotorLayout.
struct MotorLayoutEntry {
  std::uint16_t limbNo;   ///< limb number
  std::uint16_t jointNo;  ///< joint number within the limb
  char name[28];          ///< joint name, always NUL-terminated
};

/// Which motors the robot has.
struct MotorLayout {
  std::uint32_t motorNum;  ///< number of valid entries, 0 to 16
  MotorLayoutEntry motors[kMaxMotors];  ///< entries from motorNum on are all zero
};

/// One motor's low-level command.
struct LowLevelMotor {
  float position;  ///< position command
  float velocity;  ///< velocity command
  float kpGain;    ///< proportional (position) gain
  float kdGain;    ///< derivative (velocity) gain
  float torque;    ///< torque command, or the limit for publishMaxTorque
  std::uint16_t limbsNo;  ///< limb number of the motor
  std::uint16_t jointNo;  ///< joint number of the motor
};

/// The argument of publishMotorAction and publishMaxTorque.
struct LowLevelMotorRecord {
  std::uint32_t motorNum;  ///< number of valid entries, 1 to 16
  LowLevelMotor motor[kMaxMotors];
};

/// The optional trailer of a motor command; opaque, copied unchanged.
struct LowLevelTrailer {
  std::uint8_t bytes[48];
};

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

struct ObservedImu {
  float temp;
  ObservedVector3 accel;
  ObservedVector3 gyro;
  ObservedVector3 mag;
  ObservedVector3 euler;
  ObservedQuaternion quaternion;
};

struct ObservedPower {
  float power;
  float health;
  float temper;
  float chargeCurrent;
  float chargeVoltage;
};

struct ObservedMotor {
  std::uint8_t enable;
  std::uint8_t online;
  std::uint8_t error;
  float position;
  float velocity;
  float torque;
  float temp;
  float voltage;
  float lossRate;
  float maxTorque;
  std::uint16_t limbsNo;
  std::uint16_t jointNo;
};

/// Observed motion: joints, inertial unit, power. 712 bytes, byte-packed: take members by value, not
/// by reference.
struct ObservedMotionRecord {
  std::uint8_t reserved0;  ///< 0
  std::uint8_t valid;      ///< 1 in every record that the library hands out
  std::uint8_t reserved2;  ///< 0
  std::int32_t motorNum;   ///< as the robot sent it; motor[] holds at most 16 of them
  ObservedImu imu;
  std::uint8_t reserved80[52];  ///< 0 in records of the high-level client
  ObservedPower power;
  ObservedMotor motor[kMaxMotors];  ///< entries that the robot didn't fill are zero
};

#pragma pack(pop)

struct ObservedGps {
  std::uint32_t valid;
  float speed;
  std::int32_t level;
  std::int32_t rssi;
  float lat;
  float lng;
};

struct ObservedUwb {
  std::uint8_t valid;
  std::uint8_t pairState;
  std::int16_t rssi;
  std::uint16_t pitch;
  std::uint16_t azimuth;
  std::uint32_t distance;
};

struct ObservedOdometry {
  std::uint8_t valid;
  std::uint8_t padding[3];
  float position[3];
  float velocity[3];
  float yaw;
  float yawSpeed;
  std::uint32_t epoch;
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
static_assert(sizeof(ObservedMotionRecord) == 712);
static_assert(offsetof(ObservedMotionRecord, motorNum) == 3);
static_assert(offsetof(ObservedMotionRecord, imu) == 7);
static_assert(offsetof(ObservedMotionRecord, imu.gyro) == 24);
static_assert(offsetof(ObservedMotionRecord, imu.quaternion) == 63);
static_assert(offsetof(ObservedMotionRecord, power) == 132);
static_assert(offsetof(ObservedMotionRecord, motor) == 152);
static_assert(sizeof(ObservedSensorRecord) == 76);
static_assert(offsetof(ObservedSensorRecord, uwb) == 24);
static_assert(offsetof(ObservedSensorRecord, odom) == 36);
static_assert(offsetof(ObservedSensorRecord, odom.yaw) == 64);
static_assert(std::is_trivially_copyable_v<ObservedMotionRecord> &&
              std::is_trivially_copyable_v<ObservedSensorRecord>);

}  // namespace orvane::RobotSdk
