#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "orvane/RobotSdk/Export.h"

namespace orvane::RobotSdk {

/// Log sink: (level, text, length). `text` is one whole record with its line end, NUL-terminated
/// and `length` bytes long without the NUL, at most 4096. Levels: 1 progress and information, 3
/// refusals and retries, 4 failures, 5 configuration warnings. Runs on whatever thread logs,
/// several at once, and delays that thread. It must not call the SDK: operations of the service log
/// while they hold its lock, and refuse a call that comes from here. A record that the callback
/// itself causes isn't handed to it. What it throws is swallowed.
using LoggerCallback = std::function<void(std::uint32_t level, const char* text, int length)>;

/// A robot that answered a discovery request: `deviceNo` is its device id, what
/// IMotionHighLevelClient::create takes, and never empty; `detail` is the robot's description of
/// itself as compact JSON text, or empty when it gave none. Runs on an SDK thread, one call after
/// the other, beside the application's threads; a slow callback delays the next robot. What it
/// throws is logged and swallowed.
using RobotDiscoverCallback =
    std::function<void(const std::string& deviceNo, const std::string& detail)>;

/// The process-wide entry point of the SDK.
///
/// Order of use: instance(), the setters, initial(), then clients (IMotionHighLevelClient::create,
/// IMotionLowLevelClient::create), and at last shutdown(). After a shutdown the same may begin
/// anew.
///
/// The SDK runs in one of two deployments, found out by initial():
///  - on an external host (any machine that is no robot board): everything passes over the network,
///    robots are found by discoverRobotDevice, several may be used at once;
///  - on the robot board: the board's own robot only, and one SDK process at a time.
///
/// Threads: every operation may be called from any thread. They run one after the other: a call
/// waits while another thread is inside initial() or shutdown(). isMultiDevice() alone never waits.
/// From inside an SDK callback every operation but shutdown() may be called; while another thread's
/// shutdown() waits for that callback to end, such a call is refused (false, or nothing happens).
/// The service starts no thread of its own.
///
/// Errors: a refused or failed operation returns false and writes one log line, or one line on
/// standard output where its description says so. Nothing throws.
class ORVANE_API IMotionSdkService {
 public:
  /// Ends what initial() began: detaches both callbacks, ends discovery, stops the messaging layer
  /// (requests in flight end as failed; a one-way release of control that was sent gets up to 1 s
  /// to reach the robot), removes this process's DDS profile, gives the board's lock back. When it
  /// returns no callback of the service runs or will run. Clients stay valid objects and answer as
  /// disconnected from the robot; disconnect them first. Nothing happens when the service isn't
  /// initialised.
  ///
  /// Bounded, also with dead robots; waits for SDK callbacks that are running, for a client's data
  /// callback 3 s at most (one that goes on longer is logged and left running). Must not be called
  /// from inside a callback: there it is refused with a line on standard output. A process that
  /// ends without calling it gets it done at exit().
  virtual void shutdown() = 0;

  /// False on the robot board, where there is one robot; true otherwise, before initial() as well.
  /// Never waits.
  virtual bool isMultiDevice() = 0;

  /// Sends the SDK's log to `callback` instead of the console; an empty one gives it back to the
  /// console. Replaces an earlier one. In force from the next initial() until shutdown(), which
  /// forgets it. Refused while initialised ("attach logger callback before initial" on standard
  /// output).
  virtual void attachLoggerCallback(LoggerCallback callback) = 0;

  /// Names the network interface to use on an external host, e.g. "eth0"; null or "" leaves the
  /// choice to the DDS library. The name goes into the DDS profile as it is; with one that doesn't
  /// exist the messaging layer doesn't start, and clients fail to connect. Kept across shutdown().
  /// Refused while initialised ("setNetworkInterface must be called before initial" on standard
  /// output).
  virtual void setNetworkInterface(const char* name) = 0;

  /// Sets who is told of robots that answer; needed for discoverRobotDevice. Replaces an earlier
  /// one; shutdown() forgets it. Refused while initialised ("attach robot discover callback before
  /// initial" on standard output).
  virtual void attachRobotDiscoverCallback(RobotDiscoverCallback callback) = 0;

  /// Asks the robots on the network to answer, and reports every answer that arrives within the
  /// next `windowMs` milliseconds to the discover callback, robots that appear meanwhile included.
  /// A call during an open window asks again and can extend the window, never shorten it. No list
  /// is kept: a robot that answers twice is reported twice.
  ///
  /// Returns at once, at most 100 ms later. True: the window is open and the request published.
  /// False (logged): not initialised, on the robot board, no callback attached, or the request
  /// couldn't be published; an open window stays as it was.
  virtual bool discoverRobotDevice(std::uint32_t windowMs) = 0;

  /// Starts the SDK.
  ///
  /// `configPath`: a JSON configuration file of at most 4 MiB; null, "", "0" or "-" for none.
  /// `clientId`: this program's name for log and robots; null: "motionSdk".
  /// `roudiWaitSeconds`: on the robot board, how long to wait for the shared-memory daemon, looked
  /// for every 100 ms (0 fails at once); without meaning on an external host.
  ///
  /// Returns true when the SDK is ready, and at once when it already was (the arguments are ignored
  /// then). False (logged): the configuration can't be read or isn't JSON; on the board, the daemon
  /// isn't ready in time, or another process uses the SDK. It may be called again. A messaging
  /// layer that can't start is logged and doesn't fail initial(); connect() of the clients does
  /// fail then.
  ///
  /// Blocks for the wait above and for the start of the messaging layer, not for any robot.
  virtual bool initial(const char* configPath, const char* clientId,
                       std::uint32_t roudiWaitSeconds) = 0;

  /// The one service of this process. Never null, valid until the process ends. Never blocks.
  static IMotionSdkService* instance();

  /// The library's version, "1.0.0 (commit ...)"; static text.
  static const char* version();

 protected:
  ~IMotionSdkService() = default;
};

}  // namespace orvane::RobotSdk
