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

Json::Value audioEvent(const PlayEvent& event) {
  Json::Value detail;
  detail["type"] = "audio";
  detail["event"] = nameOf(event.kind);
  if (event.why) detail["reason"] = nameOf(*event.why);
  if (event.kind == PlayEvent::Kind::kListEnded) return detail;
  detail["name"] = event.name;
  detail["index"] = Json::UInt64(event.index);
  detail["positionMs"] = Json::UInt64(event.positionMs);
  return detail;
}

}  // namespace

RobotCore::RobotCore(std::unique_ptr<Body> body, std::shared_ptr<EventListener> listener)
    : listener_(std::move(listener)), body_(std::move(body)) {}

RobotCore::Access::Access(RobotCore& core)
    : core_(core), lock_(core.mutex_), nowMs_(Pexal::PBase::CTime::getCurrentMilliSecond()) {
  core_.arbiter_.judge(nowMs_);
  core_.session_.judge(nowMs_);
  core_.hold_.judge(nowMs_);
  core_.media_.player.passTo(nowMs_);
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

RecordFate RobotCore::Access::take(const msg::dds_::MotionCtrl_& sample, std::uint64_t writer) {
  const RobotSdk::LowLevelMotorRecord command = toMotorRecord(sample);
  RecordFate fate = core_.obstacleFor(writer);
  if (fate == RecordFate::kTaken) fate = core_.motors_.check(command, body());
  if (fate == RecordFate::kTaken) {
    if (!core_.hold_.held()) {
      core_.motors_.begin(0);
      core_.motors_.switchOn(body());
      core_.motion_.enterLowLevel();
    }
    core_.motors_.follow(command, nowMs_);
  }
  core_.hold_.note(fate, writer, nowMs_);
  return fate;
}

// Whoever comes back after a silence finds the robot sinking and may catch it: each joint is taken
// over from where it is.
RecordFate RobotCore::obstacleFor(std::uint64_t writer) const {
  if (hold_.held()) return hold_.heldBy(writer) ? RecordFate::kTaken : RecordFate::kOtherWriter;
  if (arbiter_.current()) return RecordFate::kControlHeld;
  if (session_.current()) return RecordFate::kSessionHeld;
  if (motion_.emergencyStopped()) return RecordFate::kEmergencyStopped;
  const bool free = motion_.settled() || motion_.posture() == Posture::kDamped;
  return free ? RecordFate::kTaken : RecordFate::kUnsettled;
}

void RobotCore::settleSession() {
  using End = WorkModeSession::End;
  if (arbiter_.current() && session_.claimsMotion()) session_.end(End::kRevoked);
  if (session_.driveIsOn() && motion_.emergencyStopped()) session_.end(End::kEmergencyStop);
  if (arbiter_.current() || session_.current() || motion_.emergencyStopped()) hold_.end();
  const std::uint64_t id = session_.current() ? session_.current()->id : 0;
  if (id != motors_.session()) motors_.begin(id);
  const bool driven = session_.driveIsOn() || hold_.held();
  const bool on = motors_.mode() != MotorControl::Mode::kOff;
  if (driven && !on) {
    motors_.switchOn(body_->state());
    motion_.enterLowLevel();
  } else if (!driven && on) {
    motors_.switchOff();
  }
  if (!session_.claimsMotion() && !hold_.held()) motion_.leaveLowLevel(!session_.current());
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
  reportAudio();
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

void RobotCore::reportAudio() {
  for (const PlayEvent& event : media_.player.takeEvents()) {
    listener_->hostEvent(audioEvent(event));
  }
}

}  // namespace orvane::robot
