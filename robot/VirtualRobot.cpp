#include "VirtualRobot.h"

#include <utility>

#include "BodyFactory.h"
#include "servers/RequestServer.h"
#include "sides/BoardSide.h"
#include "sides/HostSide.h"

namespace orvane::robot {

VirtualRobot::VirtualRobot(RobotSettings settings)
    : settings_(std::move(settings)),
      outboxes_(std::make_shared<EventOutboxes>(settings_.deviceId)),
      core_(std::make_shared<RobotCore>(makeBody(settings_, &film_), outboxes_)),
      faults_(std::make_shared<Faults>(
          core_, std::make_shared<RequestServer>(core_, settings_.deviceId))) {
  core_->access().version() = settings_.version;
  const SharedRobot robot{settings_.deviceId, core_, faults_};
  if (settings_.serves(Deployment::kBoard)) {
    sides_.push_back(std::make_unique<BoardSide>(robot, outboxes_->add()));
  }
  if (settings_.serves(Deployment::kHost)) {
    sides_.push_back(std::make_unique<HostSide>(settings_, robot, outboxes_->add()));
  }
}

VirtualRobot::~VirtualRobot() {
  stop();
}

bool VirtualRobot::start(std::string& error) {
  if (used_) {
    error = "this robot was started before";
    return false;
  }
  if (sides_.empty()) {
    error = "a robot serves at least one deployment";
    return false;
  }
  used_ = true;
  running_ = true;
  if (serve(error)) return true;
  stop();
  return false;
}

// Before anything is served: a robot that is to be silent from the start says nothing at all.
bool VirtualRobot::applyFaults(std::string& error) {
  Faults::Outcome outcome = faults_->applyAll(settings_.faults);
  error = std::move(outcome.error);
  if (!outcome.done) return false;
  if (faults_->start()) return true;
  error = "no thread for scripted faults";
  return false;
}

bool VirtualRobot::serve(std::string& error) {
  std::vector<Publisher*> publishers;
  for (const auto& side : sides_) {
    if (!side->open(error)) return false;
    publishers.push_back(&side->publisher());
  }
  if (!applyFaults(error)) return false;
  loop_ = std::make_unique<ControlLoop>(*core_, std::move(publishers));
  if (!loop_->start()) {
    error = "no thread for the control loop";
    return false;
  }
  for (const auto& side : sides_) {
    if (!side->serve(error)) return false;
  }
  return true;
}

void VirtualRobot::stop() {
  if (!running_) return;
  running_ = false;
  faults_->stop();
  for (const auto& side : sides_) side->endRequests();
  {
    RobotCore::Access robot = core_->access();
    robot.arbiter().revoke(robot.nowMs());
    robot.session().end(WorkModeSession::End::kRevoked);
  }
  if (loop_) {
    loop_->stop();
    pace_ = loop_->pace();
    loop_.reset();
  }
  for (const auto& side : sides_) side->close();
}

RobotStatus VirtualRobot::status() {
  RobotCore::Access robot = core_->access();
  RobotStatus status;
  status.posture = robot.motion().posture();
  if (const auto& grant = robot.arbiter().current()) {
    status.holder = grant->holder;
    status.controller = grant->controller;
    status.remainingMs = grant->untilMs - robot.nowMs();
  }
  if (const auto& session = robot.session().current()) {
    status.session.id = session->id;
    status.session.holder = session->holder;
    status.session.remainingMs = session->untilMs - robot.nowMs();
    status.session.driveOn = robot.session().driveIsOn();
  }
  status.session.motors = robot.motors().mode();
  status.session.records = robot.motors().counts();
  status.simulation = {robot.hold().held(), robot.hold().counts()};
  const Player& player = robot.media().player;
  status.audio.state = player.state();
  if (!player.list().empty()) {
    status.audio.name = player.list().present().name;
    status.audio.positionMs = player.positionMs();
    status.audio.lengthMs = player.list().present().lengthMs;
  }
  status.velocity = robot.body().velocity;
  status.position = robot.body().position;
  status.yaw = robot.body().yaw;
  status.chargePercent = robot.body().battery.chargePercent;
  status.lastRefusal = robot.lastRefusal();
  return status;
}

}  // namespace orvane::robot
