// The binary interface that applications are compiled against: every operation in its slot, with
// its arguments, and every record's layout. Built like an application, against the shared library.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "orvane/RobotSdk/RobotSdk.h"

namespace {

using namespace orvane::RobotSdk;
using u32 = std::uint32_t;

// --- arguments that are recognised on the other side ---

std::string outText;
ObservedPower power;
ObservedSensorRecord sensor;
ObservedMotionRecord motion;
MotorLayout layout;
LowLevelMotorRecord motors;
LowLevelTrailer trailer;

template <class Argument>
decltype(auto) sample() {
  using Value = std::remove_cv_t<std::remove_reference_t<Argument>>;
  if constexpr (std::is_same_v<Value, u32>) {
    return u32{0x89abcdef};
  } else if constexpr (std::is_same_v<Value, bool>) {
    return true;
  } else if constexpr (std::is_same_v<Value, float>) {
    return 0.25F;
  } else if constexpr (std::is_same_v<Value, const char*>) {
    return static_cast<const char*>("a name");
  } else if constexpr (std::is_same_v<Value, std::string>) {
    static const std::string text("a text that is too long for the short-string buffer");
    return (text);
  } else if constexpr (std::is_same_v<Value, std::string*>) {
    return &outText;
  } else if constexpr (std::is_same_v<Value, ObservedPower*>) {
    return &power;
  } else if constexpr (std::is_same_v<Value, ObservedSensorRecord*>) {
    return &sensor;
  } else if constexpr (std::is_same_v<Value, ObservedMotionRecord*>) {
    return &motion;
  } else if constexpr (std::is_same_v<Value, MotorLayout*>) {
    return &layout;
  } else if constexpr (std::is_same_v<Value, const LowLevelMotorRecord*>) {
    return static_cast<const LowLevelMotorRecord*>(&motors);
  } else if constexpr (std::is_same_v<Value, const LowLevelTrailer*>) {
    return static_cast<const LowLevelTrailer*>(&trailer);
  } else {
    return Value([](auto&&...) {});  // a callback
  }
}

template <class Value>
bool isSample(const Value& value) {
  if constexpr (std::is_constructible_v<bool, const Value&> && std::is_class_v<Value>) {
    return static_cast<bool>(value);  // a callback: not empty
  } else {
    return value == sample<Value>();
  }
}

/// What ran: operation names, with a mark behind those whose arguments arrived spoilt.
class Recorder {
 public:
  template <class... Arguments>
  bool note(const std::string& name, const Arguments&... arguments) {
    ran.push_back((isSample(arguments) && ...) ? name : name + " with other arguments");
    return true;
  }
  std::vector<std::string> ran;
};

class Service final : public IMotionSdkService, public Recorder {
 public:
  ~Service() = default;
  void shutdown() override { note("shutdown"); }
  bool isMultiDevice() override { return note("isMultiDevice"); }
  void attachLoggerCallback(LoggerCallback f) override { note("attachLoggerCallback", f); }
  void setNetworkInterface(const char* name) override { note("setNetworkInterface", name); }
  void attachRobotDiscoverCallback(RobotDiscoverCallback f) override {
    note("attachRobotDiscoverCallback", f);
  }
  bool discoverRobotDevice(u32 ms) override { return note("discoverRobotDevice", ms); }
  bool initial(const char* path, const char* id, u32 wait) override {
    return note("initial", path, id, wait);
  }
};

class HighLevel final : public IMotionHighLevelClient, public Recorder {
 public:
  ~HighLevel() override { ++destroyed; }
  static inline int destroyed = 0;

  bool disconnect() override { return note("disconnect"); }
  bool releaseMotionControl() override { return note("releaseMotionControl"); }
  u32 getState() override { return note("getState") ? 1 : 0; }
  u32 getLastError() override { return note("getLastError") ? 1 : 0; }
  bool connect(u32 a) override { return note("connect", a); }
  void setSensorObservedCallback(SensorObservedCallback f) override {
    note("setSensorObservedCallback", f);
  }
  void setEventCallback(EventCallback f) override { note("setEventCallback", f); }
  void setConnectCallback(ConnectCallback f) override { note("setConnectCallback", f); }
  std::shared_ptr<IMediaBusClient> createMediaBusClient() override {
    note("createMediaBusClient");
    return nullptr;
  }
  void setMotionObservedCallback(MotionObservedCallback f) override {
    note("setMotionObservedCallback", f);
  }
  bool getPowerObserved(ObservedPower* o, u32 a) override { return note("getPowerObserved", o, a); }
  bool getSensorObserved(ObservedSensorRecord* o, u32 a) override {
    return note("getSensorObserved", o, a);
  }
  bool stopPlayList(u32 t) override { return note("stopPlayList", t); }
  bool pausePlayList(u32 t) override { return note("pausePlayList", t); }
  bool getAudioPlayDetail(std::string* o, u32 t) override {
    return note("getAudioPlayDetail", o, t);
  }
  bool getCameraLightBrightness(std::string* o, u32 t) override {
    return note("getCameraLightBrightness", o, t);
  }
  bool setCameraLightBrightness(u32 b, u32 t) override {
    return note("setCameraLightBrightness", b, t);
  }
  bool startPlayList(const std::string& j, u32 t) override { return note("startPlayList", j, t); }
  bool addAudioFile(const std::string& j, u32 t) override { return note("addAudioFile", j, t); }
  bool deleteAudioFile(const std::string& j, u32 t) override {
    return note("deleteAudioFile", j, t);
  }
  bool getAudioPlayList(const std::string& j, std::string* o, u32 t) override {
    return note("getAudioPlayList", j, o, t);
  }
  bool stopMotionAction(u32 t) override { return note("stopMotionAction", t); }
  bool takeMotionControl(u32 t) override { return note("takeMotionControl", t); }
  bool emergencyStopMotion(u32 t) override { return note("emergencyStopMotion", t); }
  bool recoveryStand(u32 t) override { return note("recoveryStand", t); }
  bool queryMotionState(std::string* o, u32 t) override { return note("queryMotionState", o, t); }
  bool getSystemStatus(std::string* o, u32 t) override { return note("getSystemStatus", o, t); }
  bool getMotorLayout(MotorLayout* o, u32 t) override { return note("getMotorLayout", o, t); }
  bool getMotionCapabilities(std::string* o, u32 t) override {
    return note("getMotionCapabilities", o, t);
  }
  bool setMotionActionParams(const std::string& j, u32 t) override {
    return note("setMotionActionParams", j, t);
  }
  bool setMotionObservedEnable(const std::string& j, std::string* o, u32 t) override {
    return note("setMotionObservedEnable", j, o, t);
  }
  bool startMotionAction(const std::string& a, const std::string& j, u32 t) override {
    return note("startMotionAction", a, j, t);
  }
  bool disableAction(u32 t) override { return note("disableAction", t); }
  bool laying(u32 t) override { return note("laying", t); }
  bool standing(u32 t) override { return note("standing", t); }
  bool velocityMove(float x, float y, float v, u32 t) override {
    return note("velocityMove", x, y, v, t);
  }
};

class LowLevel final : public IMotionLowLevelClient, public Recorder {
 public:
  ~LowLevel() override { ++destroyed; }
  static inline int destroyed = 0;

  bool disconnect() override { return note("disconnect"); }
  u32 getState() override { return note("getState") ? 1 : 0; }
  u32 getLastError() override { return note("getLastError") ? 1 : 0; }
  bool setSessionFlag(bool f) override { return note("setSessionFlag", f); }
  bool emergencyStop(u32 t) override { return note("emergencyStop", t); }
  void setStateCallback(LowLevelStateCallback f) override { note("setStateCallback", f); }
  std::shared_ptr<IMediaBusClient> createMediaBusClient() override {
    note("createMediaBusClient");
    return nullptr;
  }
  bool restoreMotionControlMode(u32 t) override { return note("restoreMotionControlMode", t); }
  bool connect(u32 hz, u32 lease) override { return note("connect", hz, lease); }
  bool getMotorLayout(MotorLayout* o, u32 t) override { return note("getMotorLayout", o, t); }
  bool requireSensor(ObservedSensorRecord* o, u32 t) override {
    return note("requireSensor", o, t);
  }
  bool requireObserved(ObservedMotionRecord* o, u32 t) override {
    return note("requireObserved", o, t);
  }
  bool publishMotorAction(const LowLevelMotorRecord* r, const LowLevelTrailer* t) override {
    return note("publishMotorAction", r, t);
  }
  bool publishMaxTorque(const LowLevelMotorRecord* r) override {
    return note("publishMaxTorque", r);
  }
};

// --- calls through the table ---

template <class Function>
Function slotOf(const void* object, std::size_t slot) {
  // The object begins with the pointer to its table; every operation has one pointer there.
  void* const* const table = *static_cast<void* const* const*>(object);
  return reinterpret_cast<Function>(table[slot]);
}

struct Slot {
  const char* name;
  void (*call)(void* object, std::size_t slot);
};

template <class Result, class... Arguments>
void call(void* object, std::size_t slot) {
  slotOf<Result (*)(void*, Arguments...)>(object, slot)(object, sample<Arguments>()...);
}

using Text = const std::string&;
using Media = std::shared_ptr<IMediaBusClient>;

const Slot kServiceSlots[] = {
    {"shutdown", call<void>},
    {"isMultiDevice", call<bool>},
    {"attachLoggerCallback", call<void, LoggerCallback>},
    {"setNetworkInterface", call<void, const char*>},
    {"attachRobotDiscoverCallback", call<void, RobotDiscoverCallback>},
    {"discoverRobotDevice", call<bool, u32>},
    {"initial", call<bool, const char*, const char*, u32>},
};

const Slot kHighLevelSlots[] = {
    {"disconnect", call<bool>},
    {"releaseMotionControl", call<bool>},
    {"getState", call<u32>},
    {"getLastError", call<u32>},
    {"connect", call<bool, u32>},
    {"setSensorObservedCallback", call<void, SensorObservedCallback>},
    {"setEventCallback", call<void, EventCallback>},
    {"setConnectCallback", call<void, ConnectCallback>},
    {"createMediaBusClient", call<Media>},
    {"setMotionObservedCallback", call<void, MotionObservedCallback>},
    {"getPowerObserved", call<bool, ObservedPower*, u32>},
    {"getSensorObserved", call<bool, ObservedSensorRecord*, u32>},
    {"stopPlayList", call<bool, u32>},
    {"pausePlayList", call<bool, u32>},
    {"getAudioPlayDetail", call<bool, std::string*, u32>},
    {"getCameraLightBrightness", call<bool, std::string*, u32>},
    {"setCameraLightBrightness", call<bool, u32, u32>},
    {"startPlayList", call<bool, Text, u32>},
    {"addAudioFile", call<bool, Text, u32>},
    {"deleteAudioFile", call<bool, Text, u32>},
    {"getAudioPlayList", call<bool, Text, std::string*, u32>},
    {"stopMotionAction", call<bool, u32>},
    {"takeMotionControl", call<bool, u32>},
    {"emergencyStopMotion", call<bool, u32>},
    {"recoveryStand", call<bool, u32>},
    {"queryMotionState", call<bool, std::string*, u32>},
    {"getSystemStatus", call<bool, std::string*, u32>},
    {"getMotorLayout", call<bool, MotorLayout*, u32>},
    {"getMotionCapabilities", call<bool, std::string*, u32>},
    {"setMotionActionParams", call<bool, Text, u32>},
    {"setMotionObservedEnable", call<bool, Text, std::string*, u32>},
    {"startMotionAction", call<bool, Text, Text, u32>},
    {"disableAction", call<bool, u32>},
    {"laying", call<bool, u32>},
    {"standing", call<bool, u32>},
    {"velocityMove", call<bool, float, float, float, u32>},
};

const Slot kLowLevelSlots[] = {
    {"disconnect", call<bool>},
    {"getState", call<u32>},
    {"getLastError", call<u32>},
    {"setSessionFlag", call<bool, bool>},
    {"emergencyStop", call<bool, u32>},
    {"setStateCallback", call<void, LowLevelStateCallback>},
    {"createMediaBusClient", call<Media>},
    {"restoreMotionControlMode", call<bool, u32>},
    {"connect", call<bool, u32, u32>},
    {"getMotorLayout", call<bool, MotorLayout*, u32>},
    {"requireSensor", call<bool, ObservedSensorRecord*, u32>},
    {"requireObserved", call<bool, ObservedMotionRecord*, u32>},
    {"publishMotorAction", call<bool, const LowLevelMotorRecord*, const LowLevelTrailer*>},
    {"publishMaxTorque", call<bool, const LowLevelMotorRecord*>},
};

template <class Interface, class Mock, std::size_t count>
void callEverySlot(const Slot (&slots)[count], Mock& mock) {
  Interface* const interface = &mock;
  for (std::size_t i = 0; i < count; ++i) {
    slots[i].call(interface, i);
    ASSERT_EQ(mock.ran.size(), i + 1);
    EXPECT_EQ(mock.ran.back(), slots[i].name) << "slot " << i;
  }
}

/// The two destructors stand behind the operations: one that only destroys, one that also frees.
template <class Mock>
void callDestructorSlots(std::size_t first) {
  using Destructor = void (*)(void*);
  Mock::destroyed = 0;
  alignas(Mock) unsigned char storage[sizeof(Mock)];
  void* const placed = new (storage) Mock;
  slotOf<Destructor>(placed, first)(placed);
  EXPECT_EQ(Mock::destroyed, 1);
  void* const allocated = new Mock;  // under the address sanitizer a slot that frees nothing shows
  slotOf<Destructor>(allocated, first + 1)(allocated);
  EXPECT_EQ(Mock::destroyed, 2);
}

TEST(AbiSlots, ServiceOperationsKeepTheirPlaces) {
  Service mock;
  callEverySlot<IMotionSdkService>(kServiceSlots, mock);
}

TEST(AbiSlots, HighLevelOperationsKeepTheirPlaces) {
  HighLevel mock;
  callEverySlot<IMotionHighLevelClient>(kHighLevelSlots, mock);
  callDestructorSlots<HighLevel>(36);
}

TEST(AbiSlots, LowLevelOperationsKeepTheirPlaces) {
  LowLevel mock;
  callEverySlot<IMotionLowLevelClient>(kLowLevelSlots, mock);
  callDestructorSlots<LowLevel>(14);
}

TEST(AbiSlots, TheLibrarysOwnServiceAnswersThroughItsTable) {
  IMotionSdkService* const service = IMotionSdkService::instance();
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(service, IMotionSdkService::instance());
  EXPECT_TRUE(slotOf<bool (*)(void*)>(service, 1)(service));
  EXPECT_FALSE(slotOf<bool (*)(void*, u32)>(service, 5)(service, 10)) << "not initialed";
  EXPECT_STREQ(IMotionSdkService::version(), "1.0.0 (commit a66e0f52)");
}

TEST(AbiSlots, FactoriesOfTheLibraryRefuseBeforeInitial) {
  EXPECT_EQ(IMotionHighLevelClient::create(true), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create(std::string("robot")), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create("robot"), nullptr);
  EXPECT_EQ(IMotionLowLevelClient::create(), nullptr);
}

// --- records ---

static_assert(sizeof(IMotionSdkService) == sizeof(void*));
static_assert(sizeof(IMotionHighLevelClient) == sizeof(void*));
static_assert(sizeof(IMotionLowLevelClient) == sizeof(void*));

template <class Record>
constexpr bool isPlain = std::is_standard_layout_v<Record>&& std::is_trivially_copyable_v<Record>;
static_assert(isPlain<MotorLayout> && isPlain<LowLevelMotorRecord> && isPlain<LowLevelTrailer>);
static_assert(isPlain<ObservedMotionRecord> && isPlain<ObservedSensorRecord>);

struct Offset {
  const char* field;
  std::size_t is;
  std::size_t shall;
};

#define OFFSET(record, field, shall)                   \
  Offset {                                             \
#record "." #field, offsetof(record, field), shall \
  }

const Offset kOffsets[] = {
    OFFSET(MotorLayout, motorNum, 0),
    OFFSET(MotorLayout, motors, 4),
    OFFSET(MotorLayoutEntry, limbNo, 0),
    OFFSET(MotorLayoutEntry, jointNo, 2),
    OFFSET(MotorLayoutEntry, name, 4),
    OFFSET(LowLevelMotorRecord, motorNum, 0),
    OFFSET(LowLevelMotorRecord, motor, 4),
    OFFSET(LowLevelMotor, position, 0),
    OFFSET(LowLevelMotor, velocity, 4),
    OFFSET(LowLevelMotor, kpGain, 8),
    OFFSET(LowLevelMotor, kdGain, 12),
    OFFSET(LowLevelMotor, torque, 16),
    OFFSET(LowLevelMotor, limbsNo, 20),
    OFFSET(LowLevelMotor, jointNo, 22),
    OFFSET(ObservedMotionRecord, valid, 1),
    OFFSET(ObservedMotionRecord, motorNum, 3),
    OFFSET(ObservedMotionRecord, imu.temp, 7),
    OFFSET(ObservedMotionRecord, imu.accel, 11),
    OFFSET(ObservedMotionRecord, imu.gyro, 24),
    OFFSET(ObservedMotionRecord, imu.mag, 37),
    OFFSET(ObservedMotionRecord, imu.euler, 50),
    OFFSET(ObservedMotionRecord, imu.quaternion, 63),
    OFFSET(ObservedMotionRecord, power, 132),
    OFFSET(ObservedMotionRecord, motor, 152),
    OFFSET(ObservedVector3, x, 1),
    OFFSET(ObservedVector3, z, 9),
    OFFSET(ObservedQuaternion, w, 1),
    OFFSET(ObservedQuaternion, z, 13),
    OFFSET(ObservedPower, power, 0),
    OFFSET(ObservedPower, health, 4),
    OFFSET(ObservedPower, temper, 8),
    OFFSET(ObservedPower, chargeCurrent, 12),
    OFFSET(ObservedPower, chargeVoltage, 16),
    OFFSET(ObservedMotor, enable, 0),
    OFFSET(ObservedMotor, online, 1),
    OFFSET(ObservedMotor, error, 2),
    OFFSET(ObservedMotor, position, 3),
    OFFSET(ObservedMotor, velocity, 7),
    OFFSET(ObservedMotor, torque, 11),
    OFFSET(ObservedMotor, temp, 15),
    OFFSET(ObservedMotor, voltage, 19),
    OFFSET(ObservedMotor, lossRate, 23),
    OFFSET(ObservedMotor, maxTorque, 27),
    OFFSET(ObservedMotor, limbsNo, 31),
    OFFSET(ObservedMotor, jointNo, 33),
    OFFSET(ObservedSensorRecord, gps.valid, 0),
    OFFSET(ObservedSensorRecord, gps.speed, 4),
    OFFSET(ObservedSensorRecord, gps.level, 8),
    OFFSET(ObservedSensorRecord, gps.rssi, 12),
    OFFSET(ObservedSensorRecord, gps.lat, 16),
    OFFSET(ObservedSensorRecord, gps.lng, 20),
    OFFSET(ObservedSensorRecord, uwb.valid, 24),
    OFFSET(ObservedSensorRecord, uwb.pairState, 25),
    OFFSET(ObservedSensorRecord, uwb.rssi, 26),
    OFFSET(ObservedSensorRecord, uwb.pitch, 28),
    OFFSET(ObservedSensorRecord, uwb.azimuth, 30),
    OFFSET(ObservedSensorRecord, uwb.distance, 32),
    OFFSET(ObservedSensorRecord, odom.valid, 36),
    OFFSET(ObservedSensorRecord, odom.position, 40),
    OFFSET(ObservedSensorRecord, odom.velocity, 52),
    OFFSET(ObservedSensorRecord, odom.yaw, 64),
    OFFSET(ObservedSensorRecord, odom.yawSpeed, 68),
    OFFSET(ObservedSensorRecord, odom.epoch, 72),
};

TEST(AbiRecords, FieldsKeepTheirOffsetsAndRecordsTheirSizes) {
  for (const auto& offset : kOffsets) EXPECT_EQ(offset.is, offset.shall) << offset.field;
  EXPECT_EQ(sizeof(MotorLayoutEntry), 32U);
  EXPECT_EQ(sizeof(MotorLayout), 516U);
  EXPECT_EQ(sizeof(LowLevelMotor), 24U);
  EXPECT_EQ(sizeof(LowLevelMotorRecord), 388U);
  EXPECT_EQ(sizeof(LowLevelTrailer), 48U);
  EXPECT_EQ(sizeof(ObservedMotor), 35U);
  EXPECT_EQ(sizeof(ObservedPower), 20U);
  EXPECT_EQ(sizeof(ObservedMotionRecord), 712U);
  EXPECT_EQ(sizeof(ObservedSensorRecord), 76U);
}

}  // namespace
