#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "orvane/RobotSdk/Export.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk {

class IMediaBusClient;  // not available in this build: createMediaBusClient always returns empty

/// Told of a change of state: (2, 0) a session was taken, or the drive went off; (3, 0) the drive
/// is on; (4, code) the session was lost. Also told when an attempt to take a session failed: (1 or
/// 4, code), with code 1, 2 or 11; the next attempt follows by itself. Changes to 0 and 1, which
/// are the application's own doing, aren't told. Runs on the client's worker thread with no lock
/// held. While it runs the session isn't renewed, and the lease runs on: it must be done within the
/// lease less the time between two renewals (a third of the lease, 500 ms below 1500 ms, or as
/// configured) less 200 ms. It may call every operation of the client; disconnect doesn't wait
/// there.
///
/// On an external host: told of every change, 0 and 1 included, and of each setSessionFlag; (0, 1)
/// when connect failed. Runs on the thread that made the call, before the call returns, and may
/// call every operation. When several threads change the state, their calls of it may overlap and
/// come in another order than the changes: getState has the state. The end of the client isn't
/// told.
using LowLevelStateCallback = std::function<void(std::uint32_t state, std::uint32_t lastError)>;

/// One robot, commanded motor by motor: the loop of a control engineer. On the robot's board, under
/// a session with the robot's motion process; on an external host against a simulator, over DDS
/// topics, without a session or a server: "connected" there says nothing of who listens.
/// docs/low-level.md has the environment variables of the latter, and all differences.
///
/// State, as getState() gives it: 0 disconnected; 1 connecting; 2 connected, the motors' drive off;
/// 3 prepared, motor commands are taken; 4 the session was lost and another one is being taken.
///
/// Errors: an operation that fails returns false and leaves a code for getLastError():
///   0 none (connect and disconnect clear it)
///   1 no server, or the motor channels couldn't be opened
///   2 the session couldn't be taken
///   4 a renewal of the session failed, or the robot declared the session invalid
///   7 a wait ran out, or emergencyStop / restoreMotionControlMode failed
///   8 wrong state, no session, another thread is inside the same kind of operation, or a channel
///     is missing
///   9 a motor command while the drive is off (state 2)
///  10 invalid argument
///  11 the role of motion master was refused
/// On an external host: 1 the DDS topics couldn't be opened; 7 reading or writing them failed
/// (standard error has the reason); 8 wrong state; 9 a motor command in any state but 3; 10. A
/// requireObserved that saw nothing in time leaves no code.
///
/// Threads: every operation may be called from any thread. publishMotorAction, publishMaxTorque and
/// requireObserved are made for one control thread: while one of them runs, another thread's call
/// of any of them is refused with error 8 rather than made to wait. requireSensor runs beside them.
/// Refusals of these are logged too, once a second at the most. On an external host all operations
/// run beside each other.
///
/// A record that these send belongs to the session in which the call began; the robot carries out
/// none of a session that has ended.
class ORVANE_API IMotionLowLevelClient {
 public:
  /// Ends the session (the robot switches the drive off) and the worker; true. Waits for the worker
  /// and what it has under way: a request to a dead server for up to 10 s, the state callback for
  /// as long as that takes. From inside any callback of the application, the logger's and those of
  /// other clients included, it returns at once, and the worker ends by itself.
  /// On an external host it takes some milliseconds; a requireObserved that waits returns false.
  virtual bool disconnect() = 0;
  /// 0 to 4, see above. Never waits.
  virtual std::uint32_t getState() = 0;
  /// The last error code. On the robot board it is set back to 0, on an external host it is kept.
  /// Never waits.
  virtual std::uint32_t getLastError() = 0;
  /// Switches the motors' drive on (state 3) or off (state 2). On the robot board the worker does
  /// it, repeats it until the robot is ready, and reports the change; the wish outlives a lost
  /// session and ends with disconnect. True at once, also when disconnected (then nothing happens).
  /// On an external host at once; error 8 below state 2.
  virtual bool setSessionFlag(bool enable) = 0;
  /// Stops all motors. Needs state 3, else error 8; error 7 when the robot refused or didn't answer
  /// within `timeoutMs` milliseconds. On an external host: has twelve motors damp, once; a loop
  /// that goes on publishing undoes it. Error 8 when that couldn't be written.
  virtual bool emergencyStop(std::uint32_t timeoutMs) = 0;
  /// Replaces who is told of changes of state; at any time; an empty one: nobody. The former
  /// callback may be running still when this returns; after a disconnect that waited none is.
  virtual void setStateCallback(LowLevelStateCallback callback) = 0;
  /// Always empty: the media bus isn't enabled in this build (logged).
  virtual std::shared_ptr<IMediaBusClient> createMediaBusClient() = 0;
  /// Gives motion back to the robot's own controller. Needs state 2, else error 8; error 7 when the
  /// robot refused or didn't answer within `timeoutMs` milliseconds. On an external host always
  /// false.
  virtual bool restoreMotionControlMode(std::uint32_t timeoutMs) = 0;
  /// Takes a session: observed records at `observedHz` a second, a lease of `leaseTimeoutMs`
  /// milliseconds (0: 60000); the robot may grant other figures. Returns at once; the worker takes
  /// the session, keeps it, and takes another one when it is lost, all told through the state
  /// callback. True, and nothing changes, unless the state is 0. Error 1 when there is no server.
  /// On an external host the arguments have no meaning; the DDS topics are open (state 2) when it
  /// returns, some milliseconds later. While another thread is connecting it is true at once: that
  /// one's outcome is told by its own result and the state callback.
  virtual bool connect(std::uint32_t observedHz, std::uint32_t leaseTimeoutMs) = 0;
  /// Which motors the robot has; in any state, once connect has succeeded. Asked for once, at most
  /// `timeoutMs` milliseconds, then answered from a copy. Error 10: `out` is null.
  virtual bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) = 0;
  /// Waits up to `timeoutUs` microseconds for a sensor record that is newer than the newest one at
  /// the moment of the call. Error 8: wrong state, no channel, `out` is null, or the session ended
  /// meanwhile; 7: none came. On an external host there are none: `out` is cleared, the result
  /// false.
  virtual bool requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs) = 0;
  /// Asks for an observed record and waits up to `timeoutMs` milliseconds (note: not microseconds)
  /// for one that is newer than the newest at the moment of the call. The wait spins for 50
  /// microseconds and sleeps from then on, 0.1 ms at a time. Error 10: `out` is null; 8: wrong
  /// state or busy, or the session ended meanwhile; 7: none came. After a failure `out` may hold
  /// anything. A time of more than 4294967 ms is taken modulo 2^32 microseconds.
  /// On an external host nothing is asked for: gives the newest sample unless a call has given it
  /// already, else waits for one. Samples are looked for once a millisecond; `out` changes only
  /// with success.
  virtual bool requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs) = 0;
  /// Commands motorNum (1 to 16) motors. Needs state 3 (error 9 in state 2, else 8); error 10 for
  /// another count or a null `record`. `trailer` may be null, and is ignored on an external host.
  /// The error code stays as it was when the record couldn't be written, since the robot's process
  /// left none of the channel's chunks free for 6 ms; otherwise it never waits: no mutex, no
  /// allocation, no system call unless the robot's process sleeps. On an external host error 9 in
  /// every state but 3; takes a mutex for the length of a copy and writes one DDS sample. One that
  /// is being written while another thread leaves state 3 or disconnects goes out all the same.
  virtual bool publishMotorAction(const LowLevelMotorRecord* record,
                                  const LowLevelTrailer* trailer) = 0;
  /// Sets the largest torques, taken from the `torque` of each entry; conditions and errors as for
  /// publishMotorAction. On an external host it is checked and otherwise ignored.
  virtual bool publishMaxTorque(const LowLevelMotorRecord* record) = 0;

  virtual ~IMotionLowLevelClient();

  /// The low-level client for this deployment; IMotionSdkService::initial comes first. On the
  /// robot's board: the process's one client, which lives as long as the application holds it (the
  /// release of the last reference disconnects it). On an external host: a new one per call, which
  /// outlives shutdown of the service. Empty, with a log line at level 4, before initial.
  static std::shared_ptr<IMotionLowLevelClient> create();
};

}  // namespace orvane::RobotSdk
