#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "orvane/RobotSdk/Export.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk {

class IMediaBusClient;  // not available in this build: createMediaBusClient always returns empty

/// Tells of every change of state with the last error. Runs on the client's worker thread with no
/// lock held.
using LowLevelStateCallback = std::function<void(std::uint32_t state, std::uint32_t lastError)>;

/// One robot, commanded motor by motor: the loop of a control engineer. This release hands out no
/// low-level client yet; create() says so in the log.
///
/// State, as getState() gives it: 0 disconnected; 1 connecting; 2 connected, the motors' drive off;
/// 3 prepared, motor commands are taken; 4 the session was lost.
///
/// Errors: an operation that fails returns false and leaves a code for getLastError():
///   0 none (connect and disconnect clear it)
///   1 no server, or the motor channels couldn't be opened
///   2 the session couldn't be taken          4 the robot declared the session invalid
///   7 a wait ran out, or emergencyStop / restoreMotionControlMode failed
///   8 wrong state, no session, another thread is inside the same kind of operation, or a channel
///   is
///     missing
///   9 a motor command while the drive is off (state 2)
///  10 invalid argument                      11 the role of motion master was refused
///
/// Threads: every operation may be called from any thread; motor commands and waits are made for
/// one control thread, and a second one is refused with error 8 rather than made to wait.
class ORVANE_API IMotionLowLevelClient {
 public:
  /// Ends the session and the worker; true. Waits for the worker, unless called from a callback.
  virtual bool disconnect() = 0;
  /// 0 to 4, see above.
  virtual std::uint32_t getState() = 0;
  /// The last error code. On the robot board it is set back to 0, on an external host it is kept.
  virtual std::uint32_t getLastError() = 0;
  /// Switches the motors' drive on (state 3) or off (state 2). On the robot board the worker does
  /// it and reports the change; true, also when disconnected (then nothing happens). On an external
  /// host at once; error 8 below state 2.
  virtual bool setSessionFlag(bool enable) = 0;
  /// Stops all motors. Needs state 3, else error 8; error 7 when the robot refused or didn't answer
  /// within `timeoutMs` milliseconds.
  virtual bool emergencyStop(std::uint32_t timeoutMs) = 0;
  /// Replaces who is told of changes of state; at any time.
  virtual void setStateCallback(LowLevelStateCallback callback) = 0;
  /// Always empty: the media bus isn't enabled in this build (logged).
  virtual std::shared_ptr<IMediaBusClient> createMediaBusClient() = 0;
  /// Gives motion back to the robot's own controller. Needs state 2, else error 8; error 7 when the
  /// robot refused or didn't answer within `timeoutMs` milliseconds. On an external host always
  /// false.
  virtual bool restoreMotionControlMode(std::uint32_t timeoutMs) = 0;
  /// Takes a session: observed records at `observedHz` a second, a lease of `leaseTimeoutMs`
  /// milliseconds (0: 60000). Returns at once; the worker reports the outcome through the state
  /// callback. Error 1 when there is no server.
  virtual bool connect(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs) = 0;
  /// Which motors the robot has. Asked for once, at most `timeoutMs` milliseconds, then answered
  /// from a copy.
  virtual bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) = 0;
  /// Waits up to `timeoutUs` microseconds for a sensor record that is newer than the newest one at
  /// the moment of the call. Error 8: wrong state, no channel, `out` is null; 7: none came. On an
  /// external host there are none: `out` is cleared, the result false.
  virtual bool requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs) = 0;
  /// Asks for an observed record and waits up to `timeoutMs` milliseconds (note: not microseconds)
  /// for one that is newer than the newest at the moment of the call. Error 10: `out` is null; 8:
  /// wrong state or busy; 7: none came.
  virtual bool requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs) = 0;
  /// Commands motorNum (1 to 16) motors. Needs state 3 (error 9 in state 2, else 8); error 10 for
  /// another count. `record` must not be null; `trailer` may be, and is ignored on an external
  /// host. Never waits.
  virtual bool publishMotorAction(const LowLevelMotorRecord* record,
                                  const LowLevelTrailer* trailer) = 0;
  /// Sets the largest torques, taken from the `torque` of each entry; conditions and errors as for
  /// publishMotorAction. On an external host it is checked and otherwise ignored.
  virtual bool publishMaxTorque(const LowLevelMotorRecord* record) = 0;

  virtual ~IMotionLowLevelClient();

  /// The low-level client for this deployment. Empty, with a log line at level 4, when there is
  /// none: always, in this release.
  static std::shared_ptr<IMotionLowLevelClient> create();
};

}  // namespace orvane::RobotSdk
