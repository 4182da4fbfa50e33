#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ControlLoop.h"
#include "EventOutbox.h"
#include "RobotCore.h"
#include "faults/FaultService.h"
#include "faults/Faults.h"
#include "motion/MotionController.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/RPC.h"
#include "publish/ObservedPublisher.h"
#include "servers/EventServer.h"

namespace orvane::robot {

struct RobotSettings {
  std::string deviceId = "VR-0001";  ///< 1 to 64 letters, digits, '-', '_', '.' or ':'
  std::string interface = "lo";      ///< network interface, by name
  std::uint32_t domain = 42;         ///< DDS domain, 0 to 230
  double chargePercent = 100;        ///< of the battery at the start
  /// 0 or 0.1 to 100: how much of its DDS packets is lost on the way out. Only where this process
  /// hasn't joined the domain before.
  double lossPercent = 0;
  std::vector<std::string> faults;  ///< carried out when it starts, see parseFault
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
  RefusedRequest lastRefusal;
};

/// A whole robot as an external host sees it: request servers, events, observed topics. It has a
/// DDS context of its own, so that it can live in the process of its client.
///
/// Threading contract: start and stop on one thread; access and status on any thread between them.
/// The robot's threads are the control loop, the event sender, one per request server, two for
/// scripted faults (their service, their timetable) and the bus's workers; they meet at the robot
/// mutex (see RobotCore), which none holds while it waits.
class VirtualRobot {
 public:
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
  /// The robot's inside, for tests.
  [[nodiscard]] RobotCore::Access access() { return core_->access(); }
  /// What goes wrong with it, for tests of those who must cope with that.
  [[nodiscard]] Faults& faults() { return *faults_; }
  [[nodiscard]] const RobotSettings& settings() const { return settings_; }

 private:
  [[nodiscard]] bool serve(std::string& error);
  [[nodiscard]] bool applyFaults(std::string& error);
  [[nodiscard]] bool serveRequests(std::string& error);
  [[nodiscard]] bool addServer(const char* name, Pexal::PDBus::RPCServer::Handler handler,
                               std::string& error);

  const RobotSettings settings_;
  bool used_ = false;
  const std::shared_ptr<EventOutbox> outbox_;
  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<Faults> faults_;
  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  std::vector<std::shared_ptr<Pexal::PDBus::RPCServer>> servers_;
  std::shared_ptr<EventServer> events_;
  std::unique_ptr<ObservedPublisher> publisher_;
  std::unique_ptr<ControlLoop> loop_;
};

}  // namespace orvane::robot
