#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ControlLoop.h"
#include "EventOutbox.h"
#include "RobotCore.h"
#include "RobotSettings.h"
#include "body/Film.h"
#include "faults/Faults.h"
#include "motion/MotionController.h"
#include "sides/Side.h"

namespace orvane::robot {

/// A low-level session and what came of its records.
struct SessionStatus {
  std::uint64_t id = 0;           ///< 0: there is none
  std::string holder;             ///< who took it
  std::uint64_t remainingMs = 0;  ///< of its lease
  bool driveOn = false;
  MotorControl::Mode motors = MotorControl::Mode::kOff;
  RecordCounts records;  ///< of the last session when there is none
};

/// A low-level client on another machine.
struct SimulationStatus {
  bool active = false;   ///< the motors follow one
  RecordCounts records;  ///< of all of them
};

/// What is played.
struct AudioStatus {
  Player::State state = Player::State::kStopped;
  std::string name;  ///< of the present track; empty while stopped
  std::uint64_t positionMs = 0;
  std::uint64_t lengthMs = 0;
};

/// What a bystander wants to know, for the status line and for tests.
struct RobotStatus {
  Posture posture = Posture::kLying;
  std::string holder;             ///< who took control; empty: nobody
  std::string controller;         ///< and under which id he speaks
  std::uint64_t remainingMs = 0;  ///< of his lease
  Twist velocity;
  Vector3 position{};  ///< m, world
  double yaw = 0;      ///< rad
  double chargePercent = 0;
  SessionStatus session;
  SimulationStatus simulation;
  AudioStatus audio;
  RefusedRequest lastRefusal;
};

/// A whole robot: one body, one arbiter, shown on one side per deployment.
///
/// Threading contract: start and stop on one thread; access and status on any thread between them.
/// The robot's threads are the control loop, one event sender per side, one per request server, two
/// for scripted faults (their service, their timetable), one for motor commands from other
/// machines, one for the game pad and one for pictures, where there are such, and the buses'
/// workers; they meet at the robot mutex (see RobotCore), which none holds while it waits.
class VirtualRobot {
 public:
  /// Throws std::runtime_error with a sentence for people when this program can't make the body or
  /// the pictures that the settings ask for.
  explicit VirtualRobot(RobotSettings settings);
  ~VirtualRobot();
  VirtualRobot(const VirtualRobot&) = delete;
  VirtualRobot& operator=(const VirtualRobot&) = delete;

  /// Serves from now on. False: `error` says why, and nothing runs. A robot is started once;
  /// another run takes another object.
  [[nodiscard]] bool start(std::string& error);
  /// Revokes control, tells so, and ends everything; bounded at a few seconds, also when no peer
  /// lives. Nothing happens when it isn't started.
  void stop();

  [[nodiscard]] RobotStatus status();
  /// How its time went, from start to stop. On the owner's thread.
  [[nodiscard]] Pace pace() const { return loop_ ? loop_->pace() : pace_; }
  /// Its pictures; null when the settings ask for none. On the owner's thread.
  [[nodiscard]] Film* film() { return film_.get(); }
  /// The robot's inside, for tests.
  [[nodiscard]] RobotCore::Access access() { return core_->access(); }
  /// What goes wrong with it, for tests of those who must cope with that.
  [[nodiscard]] Faults& faults() { return *faults_; }
  [[nodiscard]] const RobotSettings& settings() const { return settings_; }

 private:
  [[nodiscard]] bool serve(std::string& error);
  [[nodiscard]] bool applyFaults(std::string& error);

  const RobotSettings settings_;
  bool used_ = false;
  bool running_ = false;
  const std::shared_ptr<EventOutboxes> outboxes_;
  std::shared_ptr<Film> film_;  // set while core_ is made
  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<Faults> faults_;
  std::vector<std::unique_ptr<Side>> sides_;
  std::unique_ptr<ControlLoop> loop_;
  Pace pace_;  // of a loop that has ended
};

}  // namespace orvane::robot
