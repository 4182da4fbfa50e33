// The binary interface that applications are compiled against: every operation in its slot, with
// its type, and every record's layout. Built like an application, against the shared library.

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "orvane/RobotSdk/RobotSdk.h"

namespace orvane::RobotSdk {
class IMediaBusClient {};  // gmock wants to know what it may have to print
}  // namespace orvane::RobotSdk

namespace {

using namespace orvane::RobotSdk;
using u32 = std::uint32_t;
using Text = const std::string&;
using Media = std::shared_ptr<IMediaBusClient>;

// --- the operations in the order of their slots ---

#define SERVICE_SLOTS(SLOT)                                        \
  SLOT(void, shutdown, ())                                         \
  SLOT(bool, isMultiDevice, ())                                    \
  SLOT(void, attachLoggerCallback, (LoggerCallback))               \
  SLOT(void, setNetworkInterface, (const char*))                   \
  SLOT(void, attachRobotDiscoverCallback, (RobotDiscoverCallback)) \
  SLOT(bool, discoverRobotDevice, (u32))                           \
  SLOT(bool, initial, (const char*, const char*, u32))

#define HIGH_LEVEL_SLOTS(SLOT)                                    \
  SLOT(bool, disconnect, ())                                      \
  SLOT(bool, releaseMotionControl, ())                            \
  SLOT(u32, getState, ())                                         \
  SLOT(u32, getLastError, ())                                     \
  SLOT(bool, connect, (u32))                                      \
  SLOT(void, setSensorObservedCallback, (SensorObservedCallback)) \
  SLOT(void, setEventCallback, (EventCallback))                   \
  SLOT(void, setConnectCallback, (ConnectCallback))               \
  SLOT(Media, createMediaBusClient, ())                           \
  SLOT(void, setMotionObservedCallback, (MotionObservedCallback)) \
  SLOT(bool, getPowerObserved, (ObservedPower*, u32))             \
  SLOT(bool, getSensorObserved, (ObservedSensorRecord*, u32))     \
  SLOT(bool, stopPlayList, (u32))                                 \
  SLOT(bool, pausePlayList, (u32))                                \
  SLOT(bool, getAudioPlayDetail, (std::string*, u32))             \
  SLOT(bool, getCameraLightBrightness, (std::string*, u32))       \
  SLOT(bool, setCameraLightBrightness, (u32, u32))                \
  SLOT(bool, startPlayList, (Text, u32))                          \
  SLOT(bool, addAudioFile, (Text, u32))                           \
  SLOT(bool, deleteAudioFile, (Text, u32))                        \
  SLOT(bool, getAudioPlayList, (Text, std::string*, u32))         \
  SLOT(bool, stopMotionAction, (u32))                             \
  SLOT(bool, takeMotionControl, (u32))                            \
  SLOT(bool, emergencyStopMotion, (u32))                          \
  SLOT(bool, recoveryStand, (u32))                                \
  SLOT(bool, queryMotionState, (std::string*, u32))               \
  SLOT(bool, getSystemStatus, (std::string*, u32))                \
  SLOT(bool, getMotorLayout, (MotorLayout*, u32))                 \
  SLOT(bool, getMotionCapabilities, (std::string*, u32))          \
  SLOT(bool, setMotionActionParams, (Text, u32))                  \
  SLOT(bool, setMotionObservedEnable, (Text, std::string*, u32))  \
  SLOT(bool, startMotionAction, (Text, Text, u32))                \
  SLOT(bool, disableAction, (u32))                                \
  SLOT(bool, laying, (u32))                                       \
  SLOT(bool, standing, (u32))                                     \
  SLOT(bool, velocityMove, (float, float, float, u32))

#define LOW_LEVEL_SLOTS(SLOT)                                                          \
  SLOT(bool, disconnect, ())                                                           \
  SLOT(u32, getState, ())                                                              \
  SLOT(u32, getLastError, ())                                                          \
  SLOT(bool, setSessionFlag, (bool))                                                   \
  SLOT(bool, emergencyStop, (u32))                                                     \
  SLOT(void, setStateCallback, (LowLevelStateCallback))                                \
  SLOT(Media, createMediaBusClient, ())                                                \
  SLOT(bool, restoreMotionControlMode, (u32))                                          \
  SLOT(bool, connect, (u32, u32))                                                      \
  SLOT(bool, getMotorLayout, (MotorLayout*, u32))                                      \
  SLOT(bool, requireSensor, (ObservedSensorRecord*, u32))                              \
  SLOT(bool, requireObserved, (ObservedMotionRecord*, u32))                            \
  SLOT(bool, publishMotorAction, (const LowLevelMotorRecord*, const LowLevelTrailer*)) \
  SLOT(bool, publishMaxTorque, (const LowLevelMotorRecord*))

// Their classes must be complete for the destructors.
#define MOCKED(result, name, arguments) MOCK_METHOD(result, name, arguments, (override));

struct HighLevel final : IMotionHighLevelClient {
  ~HighLevel() override { ++destroyed; }
  static inline int destroyed = 0;
  HIGH_LEVEL_SLOTS(MOCKED)
};
struct LowLevel final : IMotionLowLevelClient {
  ~LowLevel() override { ++destroyed; }
  static inline int destroyed = 0;
  LOW_LEVEL_SLOTS(MOCKED)
};

/// The place in the table that a caller was compiled for. The pointer to a virtual operation is
/// that place in bytes, on some machines plus one.
template <class Operation>
std::size_t placeOf(Operation operation) {
  std::uintptr_t value = 0;
  std::memcpy(&value, &operation, sizeof value);
  return value / sizeof(void*);
}

#define IN_PLACE(result, name, arguments)                                                   \
  EXPECT_EQ(placeOf(static_cast<result(Interface::*) arguments>(&Interface::name)), slot++) \
      << #name;

/// The function in that place of an object's table, to which the object's first word points.
template <class Function>
Function slotOf(const void* object, std::size_t slot) {
  void* const* const table = *static_cast<void* const* const*>(object);
  return reinterpret_cast<Function>(table[slot]);
}

/// The two destructors stand behind the operations: one that only destroys, one that also frees.
template <class Client>
void expectDestructorsAt(std::size_t first) {
  using Destructor = void (*)(void*);
  Client::destroyed = 0;
  alignas(Client) unsigned char storage[sizeof(Client)];
  void* const placed = new (storage) Client;
  slotOf<Destructor>(placed, first)(placed);
  EXPECT_EQ(Client::destroyed, 1);
  void* const allocated =
      new Client;  // under the address sanitizer a slot that frees nothing shows
  slotOf<Destructor>(allocated, first + 1)(allocated);
  EXPECT_EQ(Client::destroyed, 2);
}

TEST(AbiSlots, OperationsKeepTheirPlacesAndTypes) {
  std::size_t slot = 0;
  {
    using Interface = IMotionSdkService;
    SERVICE_SLOTS(IN_PLACE)
  }
  slot = 0;
  {
    using Interface = IMotionHighLevelClient;
    HIGH_LEVEL_SLOTS(IN_PLACE)
    expectDestructorsAt<HighLevel>(slot);
  }
  slot = 0;
  {
    using Interface = IMotionLowLevelClient;
    LOW_LEVEL_SLOTS(IN_PLACE)
    expectDestructorsAt<LowLevel>(slot);
  }
}

TEST(AbiSlots, TheLibraryExportsItsStaticFunctions) {
  IMotionSdkService* const service = IMotionSdkService::instance();
  EXPECT_EQ(service, IMotionSdkService::instance());
  EXPECT_TRUE(slotOf<bool (*)(void*)>(service, 1)(service));
  EXPECT_FALSE(slotOf<bool (*)(void*, u32)>(service, 5)(service, 10)) << "not initialed";
  EXPECT_STREQ(IMotionSdkService::version(), "1.0.0 (commit a66e0f52)");
  EXPECT_EQ(IMotionHighLevelClient::create(true), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create("robot"), nullptr);
  EXPECT_EQ(IMotionLowLevelClient::create(), nullptr);
}

// --- records ---

static_assert(sizeof(IMotionSdkService) == sizeof(void*));
static_assert(sizeof(IMotionHighLevelClient) == sizeof(void*));
static_assert(sizeof(IMotionLowLevelClient) == sizeof(void*));

struct Offset {
  const char* field;
  std::size_t is;
  std::size_t shall;
};

#define AT(record, field, shall) \
  { #record "." #field, offsetof(record, field), shall }

/// Records.h fixes the sizes and the coarse offsets; here is the place of every field.
const Offset kOffsets[] = {
    // clang-format off
    AT(MotorLayout, motorNum, 0), AT(MotorLayout, motors, 4),
    AT(MotorLayoutEntry, limbNo, 0), AT(MotorLayoutEntry, jointNo, 2),
    AT(MotorLayoutEntry, name, 4),
    AT(LowLevelMotorRecord, motorNum, 0), AT(LowLevelMotorRecord, motor, 4),
    AT(LowLevelMotor, position, 0), AT(LowLevelMotor, velocity, 4), AT(LowLevelMotor, kpGain, 8),
    AT(LowLevelMotor, kdGain, 12), AT(LowLevelMotor, torque, 16), AT(LowLevelMotor, limbsNo, 20),
    AT(LowLevelMotor, jointNo, 22),
    AT(ObservedMotionRecord, valid, 1), AT(ObservedMotionRecord, motorNum, 3),
    AT(ObservedMotionRecord, imu.temp, 7), AT(ObservedMotionRecord, imu.accel, 11),
    AT(ObservedMotionRecord, imu.gyro, 24), AT(ObservedMotionRecord, imu.mag, 37),
    AT(ObservedMotionRecord, imu.euler, 50), AT(ObservedMotionRecord, imu.quaternion, 63),
    AT(ObservedMotionRecord, power, 132), AT(ObservedMotionRecord, motor, 152),
    AT(ObservedVector3, x, 1), AT(ObservedVector3, z, 9),
    AT(ObservedQuaternion, w, 1), AT(ObservedQuaternion, z, 13),
    AT(ObservedPower, power, 0), AT(ObservedPower, health, 4), AT(ObservedPower, temper, 8),
    AT(ObservedPower, chargeCurrent, 12), AT(ObservedPower, chargeVoltage, 16),
    AT(ObservedMotor, enable, 0), AT(ObservedMotor, online, 1), AT(ObservedMotor, error, 2),
    AT(ObservedMotor, position, 3), AT(ObservedMotor, velocity, 7), AT(ObservedMotor, torque, 11),
    AT(ObservedMotor, temp, 15), AT(ObservedMotor, voltage, 19), AT(ObservedMotor, lossRate, 23),
    AT(ObservedMotor, maxTorque, 27), AT(ObservedMotor, limbsNo, 31),
    AT(ObservedMotor, jointNo, 33),
    AT(ObservedSensorRecord, gps.valid, 0), AT(ObservedSensorRecord, gps.speed, 4),
    AT(ObservedSensorRecord, gps.level, 8), AT(ObservedSensorRecord, gps.rssi, 12),
    AT(ObservedSensorRecord, gps.lat, 16), AT(ObservedSensorRecord, gps.lng, 20),
    AT(ObservedSensorRecord, uwb.valid, 24), AT(ObservedSensorRecord, uwb.pairState, 25),
    AT(ObservedSensorRecord, uwb.rssi, 26), AT(ObservedSensorRecord, uwb.pitch, 28),
    AT(ObservedSensorRecord, uwb.azimuth, 30), AT(ObservedSensorRecord, uwb.distance, 32),
    AT(ObservedSensorRecord, odom.valid, 36), AT(ObservedSensorRecord, odom.position, 40),
    AT(ObservedSensorRecord, odom.velocity, 52), AT(ObservedSensorRecord, odom.yaw, 64),
    AT(ObservedSensorRecord, odom.yawSpeed, 68), AT(ObservedSensorRecord, odom.epoch, 72),
    // clang-format on
};

TEST(AbiRecords, FieldsKeepTheirOffsets) {
  for (const auto& offset : kOffsets) EXPECT_EQ(offset.is, offset.shall) << offset.field;
  EXPECT_EQ(sizeof(LowLevelTrailer), 48U);
}

}  // namespace
