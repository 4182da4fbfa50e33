#include "RobotCore.h"

#include <utility>

#include "pbase/CTime.h"

namespace orvane::robot {
namespace {

constexpr double kLowBatteryPercent = 20;

int batteryLevel(double percent) {
  return percent <= 0 ? 2 : percent < kLowBatteryPercent ? 1 : 0;
}

Json::Value postureEvent(Posture posture, Posture previous) {
  Json::Value detail;
  detail["type"] = "posture";
  detail["posture"] = nameOf(posture);
  detail["previous"] = nameOf(previous);
  return detail;
}

}  // namespace

RobotCore::RobotCore(std::unique_ptr<Body> body, std::shared_ptr<EventListener> listener)
    : listener_(std::move(listener)), body_(std::move(body)) {}

RobotCore::Access::Access(RobotCore& core)
    : core_(core), lock_(core.mutex_), nowMs_(Pexal::PBase::CTime::getCurrentMilliSecond()) {
  core_.arbiter_.judge(nowMs_);
  core_.session_.judge(nowMs_);
  core_.settle();
}

RobotCore::Access::~Access() {
  core_.settle();
}

void RobotCore::Access::step(double seconds) {
  BodyCommand command = core_.motion_.step(core_.body_->state(), nowMs_);
  if (core_.motion_.posture() == Posture::kLowLevel) command = core_.motors_.step(nowMs_);
  core_.body_->step(command, seconds);
}

void RobotCore::settleSession() {
  using End = WorkModeSession::End;
  if (arbiter_.current() && session_.claimsMotion()) session_.end(End::kRevoked);
  if (session_.driveIsOn() && motion_.emergencyStopped()) session_.end(End::kEmergencyStop);
  const std::uint64_t id = session_.current() ? session_.current()->id : 0;
  if (id != motors_.session()) motors_.begin(id);
  const bool on = motors_.mode() != MotorControl::Mode::kOff;
  if (session_.driveIsOn() && !on) {
    motors_.switchOn(body_->state());
    motion_.enterLowLevel();
  } else if (!session_.driveIsOn() && on) {
    motors_.switchOff();
  }
  if (!session_.claimsMotion()) motion_.leaveLowLevel(!session_.current());
}

void RobotCore::settle() {
  settleSession();
  if (announcedRevision_ != arbiter_.revision()) {
    announcedRevision_ = arbiter_.revision();
    motion_.endMotion();
    const auto& grant = arbiter_.current();
    listener_->controlStatus(grant.has_value(), grant ? grant->controller : std::string());
  }
  if (announcedPosture_ != motion_.posture()) {
    const Posture previous = std::exchange(announcedPosture_, motion_.posture());
    listener_->hostEvent(postureEvent(announcedPosture_, previous));
  }
  reportBattery();
}

void RobotCore::reportBattery() {
  const int level = batteryLevel(body_->state().battery.chargePercent);
  if (level <= announcedBatteryLevel_) return;
  announcedBatteryLevel_ = level;
  Json::Value detail;
  detail["type"] = "battery";
  detail["level"] = level == 2 ? "empty" : "low";
  detail["chargePercent"] = body_->state().battery.chargePercent;
  listener_->hostEvent(std::move(detail));
}

}  // namespace orvane::robot
