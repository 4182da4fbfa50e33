#include "record/RecordCodec.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace robotctl::codec {
namespace {

using namespace orvane::RobotSdk;
using mcap::ByteBuffer;
using mcap::ByteCursor;
using mcap::ByteView;

struct Type;

/// A field of a message and where the record has it. One table is definition, encoder and decoder.
struct Field {
  const char* type;  // as the definition names it
  const Type* part;  // of another message; null: a number
  std::size_t size;  // of a number, or of one part in the record
  const char* name;
  std::size_t offset;  // in the record
  const char* comment;
  std::size_t count = 1;  // in the record
  bool sequence = false;  // as many as `motor_num` says
};

struct Type {
  const char* name;
  std::span<const Field> fields;
};

template <class Number>
constexpr const char* kTypeName = nullptr;
template <>
constexpr const char* kTypeName<std::uint8_t> = "uint8";
template <>
constexpr const char* kTypeName<std::uint16_t> = "uint16";
template <>
constexpr const char* kTypeName<std::int16_t> = "int16";
template <>
constexpr const char* kTypeName<std::uint32_t> = "uint32";
template <>
constexpr const char* kTypeName<std::int32_t> = "int32";
template <>
constexpr const char* kTypeName<float> = "float32";
template <>
constexpr const char* kTypeName<float[3]> = "float32[3]";

template <class Member>
constexpr Field number(const char* name, std::size_t offset, const char* comment) {
  using Number = std::remove_extent_t<Member>;
  static_assert(kTypeName<Member> != nullptr);
  return {kTypeName<Member>,
          nullptr,
          sizeof(Number),
          name,
          offset,
          comment,
          sizeof(Member) / sizeof(Number)};
}

#define NUMBER(record, member, name, comment) \
  number<decltype(record::member)>(name, offsetof(record, member), comment)
#define PART(record, member, type, label, comment) \
  { (type).name, &(type), 0, label, offsetof(record, member), comment }

constexpr Field kVectorFields[] = {
    NUMBER(ObservedVector3, error, "error", "0: can be trusted"),
    NUMBER(ObservedVector3, x, "x", ""),
    NUMBER(ObservedVector3, y, "y", ""),
    NUMBER(ObservedVector3, z, "z", ""),
};
constexpr Type kVector = {"orvane_sdk/FlaggedVector", kVectorFields};

constexpr Field kQuaternionFields[] = {
    NUMBER(ObservedQuaternion, error, "error", "0: can be trusted"),
    NUMBER(ObservedQuaternion, w, "w", ""),
    NUMBER(ObservedQuaternion, x, "x", ""),
    NUMBER(ObservedQuaternion, y, "y", ""),
    NUMBER(ObservedQuaternion, z, "z", ""),
};
constexpr Type kQuaternion = {"orvane_sdk/FlaggedQuaternion", kQuaternionFields};

constexpr Field kImuFields[] = {
    NUMBER(ObservedImu, temp, "temperature", "degrees Celsius"),
    PART(ObservedImu, accel, kVector, "acceleration", "m/s^2, specific force"),
    PART(ObservedImu, gyro, kVector, "angular_velocity", "rad/s"),
    PART(ObservedImu, mag, kVector, "magnetic_field", "microtesla"),
    PART(ObservedImu, euler, kVector, "euler", "rad: roll, pitch, yaw"),
    PART(ObservedImu, quaternion, kQuaternion, "orientation", "from body to world"),
};
constexpr Type kImu = {"orvane_sdk/Imu", kImuFields};

constexpr Field kPowerFields[] = {
    NUMBER(ObservedPower, power, "charge", "percent"),
    NUMBER(ObservedPower, health, "health", "percent"),
    NUMBER(ObservedPower, temper, "temperature", "degrees Celsius"),
    NUMBER(ObservedPower, chargeCurrent, "current", "A, negative while discharging"),
    NUMBER(ObservedPower, chargeVoltage, "voltage", "V"),
};
constexpr Type kPower = {"orvane_sdk/Power", kPowerFields};

constexpr Field kMotorFields[] = {
    NUMBER(ObservedMotor, enable, "enable", "1: the motor is driven"),
    NUMBER(ObservedMotor, online, "online", "1: the motor answers"),
    NUMBER(ObservedMotor, error, "error", "the motor's own number, 0: none"),
    NUMBER(ObservedMotor, position, "position", "rad"),
    NUMBER(ObservedMotor, velocity, "velocity", "rad/s"),
    NUMBER(ObservedMotor, torque, "torque", "N m"),
    NUMBER(ObservedMotor, temp, "temperature", "degrees Celsius"),
    NUMBER(ObservedMotor, voltage, "voltage", "V"),
    NUMBER(ObservedMotor, lossRate, "loss_rate", "share of lost messages"),
    NUMBER(ObservedMotor, maxTorque, "max_torque", "N m"),
    NUMBER(ObservedMotor, limbsNo, "limb_no",
           "0 front left, 1 front right, 2 rear left, 3 rear right"),
    NUMBER(ObservedMotor, jointNo, "joint_no", "0 hip, 1 thigh, 2 calf"),
};
constexpr Type kMotor = {"orvane_sdk/Motor", kMotorFields};

constexpr Field kMotionFields[] = {
    NUMBER(ObservedMotionRecord, motorNum, "motor_num", "as the robot said; at most 16 are here"),
    PART(ObservedMotionRecord, imu, kImu, "imu", "in the body frame"),
    PART(ObservedMotionRecord, power, kPower, "power", ""),
    {kMotor.name, &kMotor, sizeof(ObservedMotor), "motors", offsetof(ObservedMotionRecord, motor),
     "", kMaxMotors, true},
};
constexpr Type kMotion = {"orvane_sdk/ObservedMotion", kMotionFields};

constexpr Field kGpsFields[] = {
    NUMBER(ObservedGps, valid, "valid", "0: nothing else here means anything"),
    NUMBER(ObservedGps, speed, "speed", "as the receiver gives it"),
    NUMBER(ObservedGps, level, "level", ""),
    NUMBER(ObservedGps, rssi, "rssi", ""),
    NUMBER(ObservedGps, lat, "latitude", ""),
    NUMBER(ObservedGps, lng, "longitude", ""),
};
constexpr Type kGps = {"orvane_sdk/Gps", kGpsFields};

constexpr Field kUwbFields[] = {
    NUMBER(ObservedUwb, valid, "valid", "0: nothing else here means anything"),
    NUMBER(ObservedUwb, pairState, "pair_state", ""),
    NUMBER(ObservedUwb, rssi, "rssi", ""),
    NUMBER(ObservedUwb, pitch, "pitch", ""),
    NUMBER(ObservedUwb, azimuth, "azimuth", ""),
    NUMBER(ObservedUwb, distance, "distance", ""),
};
constexpr Type kUwb = {"orvane_sdk/Uwb", kUwbFields};

constexpr Field kOdometryFields[] = {
    NUMBER(ObservedOdometry, valid, "valid", "0: nothing else here means anything"),
    NUMBER(ObservedOdometry, position, "position", "m, in the world frame"),
    NUMBER(ObservedOdometry, velocity, "velocity", "m/s"),
    NUMBER(ObservedOdometry, yaw, "yaw", "rad"),
    NUMBER(ObservedOdometry, yawSpeed, "yaw_speed", "rad/s"),
    NUMBER(ObservedOdometry, epoch, "epoch", "changes whenever the origin does"),
};
constexpr Type kOdometry = {"orvane_sdk/Odometry", kOdometryFields};

constexpr Field kSensorFields[] = {
    PART(ObservedSensorRecord, gps, kGps, "gps", ""),
    PART(ObservedSensorRecord, uwb, kUwb, "uwb", "bearing of a paired radio beacon"),
    PART(ObservedSensorRecord, odom, kOdometry, "odometry", ""),
};
constexpr Type kSensor = {"orvane_sdk/ObservedSensor", kSensorFields};

// The representation header: CDR, little-endian, no options.
constexpr std::array<std::uint8_t, 4> kHead = {0, 1, 0, 0};

std::size_t padding(std::size_t position, std::size_t alignment) {
  return (alignment - position % alignment) % alignment;
}

void encodeFields(const Type& type, const std::uint8_t* record, std::uint32_t motors,
                  ByteBuffer& out) {
  const auto align = [&out](std::size_t size) {
    out.appendZeros(padding(out.size() - kHead.size(), size));
  };
  for (const Field& field : type.fields) {
    if (field.sequence) {
      align(sizeof(motors));
      out.put(motors);
    }
    const std::size_t count = field.sequence ? motors : field.count;
    for (std::size_t at = 0; at < count; ++at) {
      const std::uint8_t* const value = record + field.offset + at * field.size;
      if (field.part != nullptr) {
        encodeFields(*field.part, value, motors, out);
      } else {
        align(field.size);
        out.append({value, field.size});
      }
    }
  }
}

class Decoder {
 public:
  explicit Decoder(ByteView bytes) : whole_(bytes), cursor_(bytes) {}

  void decode(const Type& type, std::uint8_t* record) {
    for (const Field& field : type.fields) {
      std::size_t count = field.count;
      if (field.sequence) {
        std::uint32_t length = 0;
        number(reinterpret_cast<std::uint8_t*>(&length), sizeof(length));
        if (length > field.count) return fail();
        count = length;
      }
      for (std::size_t at = 0; at < count; ++at) {
        std::uint8_t* const value = record + field.offset + at * field.size;
        if (field.part != nullptr) {
          decode(*field.part, value);
        } else {
          number(value, field.size);
        }
      }
    }
  }
  /// Everything was there, and nothing more.
  [[nodiscard]] bool done() const { return cursor_.ok() && cursor_.rest().empty() && !failed_; }

 private:
  void fail() { failed_ = true; }
  void number(std::uint8_t* value, std::size_t size) {
    static_cast<void>(cursor_.takeBytes(padding(whole_.size() - cursor_.rest().size(), size)));
    const ByteView bytes = cursor_.takeBytes(size);
    if (!bytes.empty()) std::memcpy(value, bytes.data(), size);
  }

  const ByteView whole_;
  ByteCursor cursor_;
  bool failed_ = false;
};

template <class Record>
void encodeRecord(const Type& type, const Record& record, std::uint32_t motors, ByteBuffer& out) {
  out.clear();
  out.append(kHead);
  encodeFields(type, reinterpret_cast<const std::uint8_t*>(&record), motors, out);
}

template <class Record>
bool decodeRecord(const Type& type, ByteView bytes, Record& record) {
  record = {};
  // The options in the last two bytes of the head tell of padding at the end only.
  if (bytes.size() < kHead.size() || !std::equal(kHead.begin(), kHead.begin() + 2, bytes.begin())) {
    return false;
  }
  Decoder decoder(bytes.subspan(kHead.size()));
  decoder.decode(type, reinterpret_cast<std::uint8_t*>(&record));
  return decoder.done();
}

void defineFields(const Type& type, std::string& text, std::vector<const Type*>& parts) {
  for (const Field& field : type.fields) {
    text += std::string(field.type) + (field.sequence ? "[] " : " ") + field.name;
    if (*field.comment != '\0') text += std::string("  # ") + field.comment;
    text += '\n';
    const bool known = std::find(parts.begin(), parts.end(), field.part) != parts.end();
    if (field.part != nullptr && !known) parts.push_back(field.part);
  }
}

std::string define(const Type& type) {
  std::string text;
  std::vector<const Type*> parts;
  defineFields(type, text, parts);
  for (std::size_t at = 0; at < parts.size(); ++at) {  // it grows meanwhile
    const Type& part = *parts[at];
    text += std::string(80, '=') + "\nMSG: " + part.name + '\n';
    defineFields(part, text, parts);
  }
  return text;
}

}  // namespace

std::string motionDefinition() {
  return define(kMotion);
}

std::string sensorDefinition() {
  return define(kSensor);
}

void encode(const ObservedMotionRecord& record, ByteBuffer& out) {
  const std::int32_t said = record.motorNum;
  constexpr auto kMost = static_cast<std::int32_t>(kMaxMotors);
  encodeRecord(kMotion, record, static_cast<std::uint32_t>(std::clamp(said, 0, kMost)), out);
}

void encode(const ObservedSensorRecord& record, ByteBuffer& out) {
  encodeRecord(kSensor, record, 0, out);
}

bool decode(ByteView bytes, ObservedMotionRecord& record) {
  if (!decodeRecord(kMotion, bytes, record)) return false;
  record.valid = 1;
  return true;
}

bool decode(ByteView bytes, ObservedSensorRecord& record) {
  return decodeRecord(kSensor, bytes, record);
}

}  // namespace robotctl::codec
