#pragma once

#include <json/json.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/Context.h"
#include "core/Failure.h"
#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"

namespace robotctl {

/// A robot that answered a discovery.
struct FoundRobot {
  std::string deviceNo;
  Json::Value detail;  ///< its description of itself, an object; null when it gave none
};

/// The library's callbacks, for a command that watches. They run on the library's threads
/// (IMotionHighLevelClient.h says which), must not block, and may still run while Robot's
/// destructor disconnects: let them hold what they write to by shared_ptr. They must not call
/// Robot.
struct RobotCallbacks {
  orvane::RobotSdk::ConnectCallback state;
  orvane::RobotSdk::EventCallback event;
  orvane::RobotSdk::MotionObservedCallback motion;
  orvane::RobotSdk::SensorObservedCallback sensor;
};

/// The library's service and one client of it: one robot, and this program's hold on it.
///
///     Robot robot(context);   // the library starts
///     robot.connect();        // finds the robot and asks it a first question
///     robot.take();           // control is held from here on
///     robot.request("standing", [&](auto& client, auto ms) { return client.standing(ms); });
///     robot.waitForPosture("standing", 15000);
///     robot.release();
///
/// Threading: one thread uses it, but for `changedFd` (any) and `state`. Every wait ends with
/// Interrupted as soon as a signal asks for it; a request under way is waited for (--timeout at
/// most). Everything that can fail throws Failure with who, why and what would help.
///
/// The destructor stops a walk that this program began, gives control back, disconnects and shuts
/// the library down; some seconds at most, also when the robot is dead. It never throws; it warns
/// when the robot may still be walking.
class Robot {
 public:
  using Client = orvane::RobotSdk::IMotionHighLevelClient;
  using Call = std::function<bool(Client&, std::uint32_t timeoutMs)>;
  using Query = std::function<bool(Client&, std::string*, std::uint32_t timeoutMs)>;
  using State = std::pair<std::uint32_t, std::uint32_t>;  ///< state, code

  /// Starts the library. Failure: kSetup (no such interface, configuration unreadable, another
  /// program uses the library on this board, ...), kUsage (an option that doesn't go with this
  /// machine).
  explicit Robot(Context& context);
  ~Robot();
  Robot(const Robot&) = delete;
  Robot& operator=(const Robot&) = delete;

  /// This machine is a robot's board: it has one robot, and nothing is discovered.
  [[nodiscard]] bool onBoard() const;

  // Finding.

  /// Opens the discovery for `windowMs` and collects who answers, each robot once with its newest
  /// answer, by name. `done` is asked after each answer and ends it early. Not on a board (kUsage).
  std::vector<FoundRobot> discover(
      std::uint32_t windowMs,
      const std::function<bool(const std::vector<FoundRobot>&)>& done = nullptr);
  /// What to throw when none answered; `others` did, but not the one that is meant.
  [[nodiscard]] static Failure noRobot(const CommonOptions& options,
                                       const std::vector<FoundRobot>& others = {});
  /// The robot that --robot names, or the one that answers. kNoRobot when none does, or several
  /// (which it lists). On a board nothing happens.
  void find();
  /// "robot dog", "this board's robot"; for messages.
  [[nodiscard]] const std::string& name() const { return name_; }
  /// Its device id; on a board what the robot says it is.
  [[nodiscard]] const std::string& deviceNo() const { return deviceNo_; }
  /// What it said of itself when it was found; null on a board.
  [[nodiscard]] const Json::Value& detail() const { return detail_; }

  // Connection and control.

  /// Finds the robot unless done, connects and asks it for its motion state (kNoAnswer when it
  /// doesn't answer). Lease: how long the robot keeps control when this program dies.
  void connect(RobotCallbacks callbacks = {}, std::uint32_t leaseMs = 10000);
  /// Switches the observed streams. Failure like `request`.
  void enableStreams(bool motion, bool sensor);
  enum class Waiting {
    kPatient,
    kStillMoving,  ///< it is to stop a robot: that another program's hold keeps it from that is
                   ///< told
  };
  /// Takes control and waits for it, --control-timeout at most. kNoControl, with who holds it.
  void take(Waiting waiting = Waiting::kPatient);
  /// Gives it back and waits until that is done (5 s at most; then kNoAnswer).
  void release();
  /// The newest (state, code) that the library reported; (1, 0) after connect. Any thread.
  [[nodiscard]] State state() const;
  [[nodiscard]] bool inControl() const { return state().first == 2; }
  /// Becomes readable at each change of `state`; for poll(). `drainChanged` makes it unreadable.
  [[nodiscard]] int changedFd() const;
  void drainChanged();
  /// Throws kNoControl, with who has it now, when control was taken and is lost since; Interrupted
  /// when a signal came.
  void check();

  // Requests. `name` is the library's own ("standing").

  /// One request; false becomes a Failure that tells error number and name, the robot's reason,
  /// state, who holds control, and what would help.
  void request(const char* name, const Call& call);
  /// The same for one that answers with a document.
  [[nodiscard]] Json::Value query(const char* name, const Query& call);
  [[nodiscard]] Json::Value motionState();
  [[nodiscard]] Json::Value systemStatus();
  [[nodiscard]] Json::Value capabilities();
  [[nodiscard]] orvane::RobotSdk::MotorLayout motorLayout();

  /// Forward and left in m/s, turn in rad/s counter-clockwise. To be repeated several times a
  /// second. From now on the destructor stops the robot.
  void walk(float forward, float left, float turn);
  /// Brakes.
  void stop();

  /// Waits until the robot has that posture; kNoAnswer when it hasn't in time, kRefused when it
  /// gets into one that leads nowhere ("emergencyStop"). A robot that tells no posture isn't waited
  /// for.
  void waitForPosture(const std::string& posture, std::uint32_t limitMs);
  /// Waits until the robot neither walks nor brakes. kNoAnswer when it still does at the limit.
  void waitUntilStopped(std::uint32_t limitMs);
  /// Waits that long, and throws what `check` throws as soon as there is cause.
  void pause(std::uint32_t milliseconds);

  /// For what this class doesn't have. Valid from connect() on; don't keep it.
  [[nodiscard]] Client& client() { return *client_; }
  [[nodiscard]] Context& context() { return context_; }

 private:
  struct Shared;
  static constexpr std::uint32_t kRefusedByRobot = 9;  // an error number

  void startService();
  void refuseWrongOptions() const;
  void close() noexcept;
  /// `goesOn` is asked with the posture and how many milliseconds have passed.
  void waitWhile(const std::function<bool(const std::string&, std::uint64_t)>& goesOn,
                 const std::string& wanted, std::uint32_t limitMs);
  /// `untold`: the error number where the library tells of none.
  [[noreturn]] void fail(const char* name, std::uint64_t waitedMs = 0,
                         std::uint32_t untold = kRefusedByRobot);
  [[nodiscard]] Json::Value stateForExplanation() const;

  Context& context_;
  orvane::RobotSdk::IMotionSdkService* const service_;
  std::shared_ptr<Shared> shared_;  // with the library's callbacks
  std::shared_ptr<Client> client_;
  std::string programName_;  // what the robot knows this process by
  std::string name_;
  std::string deviceNo_;
  Json::Value detail_;
  bool started_ = false;
  bool controls_ = false;  // taken and not given back
  bool walking_ = false;
};

}  // namespace robotctl
