#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "orvane/RobotSdk/Export.h"
#include "orvane/RobotSdk/Records.h"

namespace orvane::RobotSdk {

class IMediaBusClient;  // not available in this build: createMediaBusClient always returns empty

/// Tells of a change of state as (state, code). The pairs are:
///  (2, 0) motion control acquired, or given back by the robot after it was preempted
///  (1, 0) released, as asked
///  (1, 2) acquisition given up at its deadline
///  (1, 4) the lease expired: a renewal failed
///  (1, 5) the robot revoked control or gave it to another controller
/// Runs on the client's worker thread, or on an event thread for changes that the robot announced.
using ConnectCallback = std::function<void(std::uint32_t state, std::uint32_t code)>;
/// An event of the robot's host: its topic, and its "detail" as JSON text ("null" when it has
/// none). Runs on an event thread, in order within a topic.
using EventCallback = std::function<void(const std::string& topic, const std::string& detail)>;
/// The newest observed motion (up to 500 records a second) and sensor state (up to 50). Each runs
/// on a thread of its stream's own; a slow callback skips records of its own stream only.
using MotionObservedCallback = std::function<void(const ObservedMotionRecord& record)>;
using SensorObservedCallback = std::function<void(const ObservedSensorRecord& record)>;

/// One robot, commanded by whole movements: stand, walk, lie down.
///
/// Order of use: create, set callbacks, connect, takeMotionControl, wait for the connect callback's
/// (2, 0), commands, releaseMotionControl, disconnect.
///
/// State, as getState() gives it: 0 disconnected; 1 connected, no motion control; 2 connected and
/// holding motion control. Only one controller at a time can hold control of a robot; it holds it
/// under a lease that the client renews by itself.
///
/// Errors: an operation that fails returns false and leaves a code for getLastError():
///   1 no endpoint: the service isn't initialised or has no such server
///   2 acquisition of control failed or was given up
///   3 transport failure: the request wasn't delivered, or not answered in time
///   4 the lease expired            5 control was revoked or preempted
///   6 not connected (or a null output pointer)
///   7 the operation needs motion control (state 2)
///   8 no observed data that is fresh enough
///   9 the robot refused (in media requests also: the argument isn't JSON text)
///  10 the argument isn't JSON text (motion requests)
/// A later success doesn't clear the code. Output arguments are written on success only.
///
/// Blocking: an operation with `timeoutMs` sends one request and waits for its answer at most that
/// many milliseconds; finding the robot on a first request counts. 0 waits for nothing, and so
/// fails. It ends early when the robot's server is seen to vanish or the service shuts down. Every
/// other operation returns without waiting for the robot. A request is carried out at most once;
/// after a transport failure it may or may not have been.
///
/// JSON: text in, text out, UTF-8, at most 4 MiB and 64 levels deep. Keys and meanings of the
/// documents are the robot's; they pass unchanged.
///
/// Threads: every operation may be called from any thread, also from the callbacks. Callbacks run
/// on SDK threads, never on the caller's, and with no lock held; what they throw is swallowed. The
/// release of the last reference disconnects.
class ORVANE_API IMotionHighLevelClient {
 public:
  /// Ends the connection: gives up control (a best-effort message, the answer isn't awaited), ends
  /// the subscriptions and the worker. Always true; nothing happens when disconnected. Waits until
  /// the worker has ended, which takes as long as a request of its that is under way (at most 5 s),
  /// and then no callback runs or will begin; a callback that is running longer than a second isn't
  /// waited for. Called from inside a callback it returns at once, and the worker ends by itself.
  virtual bool disconnect() = 0;

  /// Asks for control to be given back; the worker does it and reports (1, 0). Needs state 2, else
  /// error
  /// 7. Returns at once.
  virtual bool releaseMotionControl() = 0;

  /// 0, 1 or 2, see above.
  virtual std::uint32_t getState() = 0;

  /// The last error code, and sets it back to 0.
  virtual std::uint32_t getLastError() = 0;

  /// Connects: state 1. `leaseHintMs` is the length of the lease to ask for when control is taken,
  /// in milliseconds; 0 and values above 2147483647 mean 60000. The robot may grant another length.
  /// True also when already connected (then nothing changes). False with error 1: see above. The
  /// robot itself isn't waited for: that it doesn't exist shows with the first request. After a
  /// disconnect made from inside a callback the former worker may have to end first.
  virtual bool connect(std::uint32_t leaseHintMs) = 0;

  // The four callback setters replace what was set. They are refused (logged, level 3; the old
  // callback stays) while connected: set before connect(), or after disconnect().

  /// Who gets the sensor records. The stream flows once setMotionObservedEnable has switched it on.
  virtual void setSensorObservedCallback(SensorObservedCallback callback) = 0;
  /// Who gets the robot's events.
  virtual void setEventCallback(EventCallback callback) = 0;
  /// Who is told of changes of state.
  virtual void setConnectCallback(ConnectCallback callback) = 0;

  /// Always empty: the media bus isn't enabled in this build (logged). For a robot board only;
  /// refused with a line of its own for other clients and while not connected.
  virtual std::shared_ptr<IMediaBusClient> createMediaBusClient() = 0;

  /// Who gets the motion records. The stream flows once setMotionObservedEnable has switched it on.
  virtual void setMotionObservedCallback(MotionObservedCallback callback) = 0;

  /// Copies the power block of the newest motion record when that was received at most `maxAgeUs`
  /// microseconds ago; else error 8. Error 6: not connected, or `out` is null.
  virtual bool getPowerObserved(ObservedPower* out, std::uint32_t maxAgeUs) = 0;
  /// Copies the newest sensor record when that was received at most `maxAgeMs` milliseconds ago
  /// (here the age is in milliseconds); else error 8. Error 6: not connected, or `out` is null.
  virtual bool getSensorObserved(ObservedSensorRecord* out, std::uint32_t maxAgeMs) = 0;

  // Media and system. Text that isn't JSON is error 9, and nothing is sent; empty text sends no
  // parameters.

  /// Stops what is played. Needs control.
  virtual bool stopPlayList(std::uint32_t timeoutMs) = 0;
  /// Pauses what is played. Needs control.
  virtual bool pausePlayList(std::uint32_t timeoutMs) = 0;
  /// What is played now. Needs a connection.
  virtual bool getAudioPlayDetail(std::string* outJson, std::uint32_t timeoutMs) = 0;
  /// The brightness of the camera's light. Needs control, although it changes nothing.
  virtual bool getCameraLightBrightness(std::string* outJson, std::uint32_t timeoutMs) = 0;
  /// Sets the camera's light; the range is the robot's. Needs control.
  virtual bool setCameraLightBrightness(std::uint32_t brightness, std::uint32_t timeoutMs) = 0;
  /// Plays the list that `json` describes. Needs control.
  virtual bool startPlayList(const std::string& json, std::uint32_t timeoutMs) = 0;
  /// Adds / removes the audio file that `json` describes. Needs control.
  virtual bool addAudioFile(const std::string& json, std::uint32_t timeoutMs) = 0;
  virtual bool deleteAudioFile(const std::string& json, std::uint32_t timeoutMs) = 0;
  /// The play lists, filtered by `json`. Needs a connection.
  virtual bool getAudioPlayList(const std::string& json, std::string* outJson,
                                std::uint32_t timeoutMs) = 0;

  // Motion. "Needs control" is state 2, else error 7; "needs a connection" is state 1 or 2, else
  // error 6. A command that returns true was accepted by the robot, which then carries it out;
  // queryMotionState and the observed records tell how far it is.

  /// Stops walking and stands. Needs control.
  virtual bool stopMotionAction(std::uint32_t timeoutMs) = 0;

  /// States the wish to hold control, and returns at once; the worker acquires control and reports
  /// (2, 0), or (1, 2) with error 2 when it hasn't succeeded after `acquireLimitMs` milliseconds
  /// (0: 10000). One attempt takes 3 s and is repeated every second. A connection that lost control
  /// doesn't try to win it back until this is called again. Needs a connection, else error 6.
  virtual bool takeMotionControl(std::uint32_t acquireLimitMs) = 0;

  /// Stops all motion at once and latches: until recoveryStand the robot takes no other motion.
  /// Needs control. It passes through the network like every request: it doesn't replace the
  /// robot's own emergency switch.
  virtual bool emergencyStopMotion(std::uint32_t timeoutMs) = 0;
  /// Stands up from any pose; ends an emergency stop. Needs control.
  virtual bool recoveryStand(std::uint32_t timeoutMs) = 0;

  /// What the robot is doing, as JSON text. Needs a connection. The virtual robot tells, among
  /// other things, "posture", "velocity", who holds control, since when and until when, and the
  /// last refusal.
  virtual bool queryMotionState(std::string* outJson, std::uint32_t timeoutMs) = 0;
  /// State of the whole system, as JSON text. Needs a connection.
  virtual bool getSystemStatus(std::string* outJson, std::uint32_t timeoutMs) = 0;
  /// Which motors the robot has, in the order of the observed records. Asked for once and then
  /// answered from a copy, connected or not; the first time needs a connection.
  virtual bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) = 0;
  /// What the robot can be asked for (actions, ranges), as JSON text. Needs a connection.
  virtual bool getMotionCapabilities(std::string* outJson, std::uint32_t timeoutMs) = 0;

  /// Sets parameters of motion from a JSON object (empty text: {}); error 10 when it isn't JSON.
  /// The virtual robot knows "bodyHeight" and "stepHeight", in m. Needs control.
  virtual bool setMotionActionParams(const std::string& paramsJson, std::uint32_t timeoutMs) = 0;

  /// Switches the observed streams of this client: {"motionEnable": true, "sensorEnable": true}.
  /// Both are off in a new client and keep their setting across disconnect() and connect(); a key
  /// left out switches its stream off. `outJson` gets the request as it was understood. Needs a
  /// connection; error 10 when it isn't JSON, error 9 for every other failure.
  virtual bool setMotionObservedEnable(const std::string& json, std::string* outJson,
                                       std::uint32_t timeoutMs) = 0;

  /// Starts an action by name with its parameters as a JSON object (empty text: {}); error 10 when
  /// that isn't JSON. The names are in getMotionCapabilities. Needs control.
  virtual bool startMotionAction(const std::string& action, const std::string& paramsJson,
                                 std::uint32_t timeoutMs) = 0;

  /// Switches the motors to damping: the robot sinks down. Needs control.
  virtual bool disableAction(std::uint32_t timeoutMs) = 0;
  /// Lies down. Needs control.
  virtual bool laying(std::uint32_t timeoutMs) = 0;
  /// Stands up. Needs control.
  virtual bool standing(std::uint32_t timeoutMs) = 0;

  /// Walks with a velocity in the body's frame: `lineX` forward and `lineY` to the left in m/s,
  /// `velocity` the turn in rad/s, counter-clockwise seen from above. The numbers are sent as they
  /// are, neither clamped nor converted: units and limits are the robot's, and these are those of
  /// the virtual robot, which refuses what is outside its capabilities (error 9). Send it anew
  /// several times a second: a walk that isn't refreshed for a second is stopped. Needs control.
  virtual bool velocityMove(float lineX, float lineY, float velocity, std::uint32_t timeoutMs) = 0;

  virtual ~IMotionHighLevelClient();

  /// On the robot board: the process's one client, the same one as long as it is held anywhere
  /// (`asMaster` counts when it is made: true commands through the brain board, false through the
  /// motion board). Empty elsewhere, with the reason on standard output. Doesn't block.
  static std::shared_ptr<IMotionHighLevelClient> create(bool asMaster);

  /// On an external host: a new client for the robot with that device id (see
  /// IMotionSdkService::discoverRobotDevice). Empty, with the reason on standard output, when the
  /// id is empty or the service isn't initialised; empty without a word on the robot board. Whether
  /// the robot exists isn't looked at. Doesn't block.
  static std::shared_ptr<IMotionHighLevelClient> create(std::string deviceId);

  /// A text literal names a device; without this overload it would convert to bool.
  static std::shared_ptr<IMotionHighLevelClient> create(const char* deviceId) {
    return create(std::string(deviceId != nullptr ? deviceId : ""));
  }
};

}  // namespace orvane::RobotSdk
