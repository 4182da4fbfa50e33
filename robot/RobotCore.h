#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "EventOutbox.h"
#include "Refusal.h"
#include "arbiter/Arbiter.h"
#include "body/Body.h"
#include "media/MediaRoom.h"
#include "motion/MotionController.h"
#include "pbase/CMutex.h"
#include "session/MotorControl.h"
#include "session/WorkModeSession.h"
#include "sim/WriterHold.h"

namespace orvane::robot {

/// The last request that the robot didn't carry out.
struct RefusedRequest {
  std::string method;  ///< empty: none was refused yet
  std::string clientId;
  Refusal refusal{};
  std::uint64_t atMs = 0;
};

/// Arbiter, low-level session, motion controller, motors, body and media, which only make sense
/// together.
///
/// Threading contract: the robot mutex (mutex_) guards every member. All use goes through an
/// Access, which holds it; nothing that waits (requests, events, DDS) may happen inside one. Lock
/// order: robot mutex, then an outbox's own. At its begin an Access judges the leases and lets time
/// pass for what is played; at its begin and its end it settles: a change of controller ends
/// motion, who takes control over everybody's head ends a low-level session or a hold from another
/// machine, the motors' drive follows session and hold, and the listener is told of changes of
/// control, posture, battery and what is played in the order in which they happened.
class RobotCore {
 public:
  class Access {
   public:
    explicit Access(RobotCore& core);
    ~Access();
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    [[nodiscard]] Arbiter& arbiter() { return core_.arbiter_; }
    [[nodiscard]] WorkModeSession& session() { return core_.session_; }
    [[nodiscard]] MotionController& motion() { return core_.motion_; }
    [[nodiscard]] const MotorControl& motors() const { return core_.motors_; }
    /// Who commands the motors from another machine.
    [[nodiscard]] const WriterHold& hold() const { return core_.hold_; }
    [[nodiscard]] const BodyState& body() const { return core_.body_->state(); }
    [[nodiscard]] MediaRoom& media() { return core_.media_; }
    [[nodiscard]] RefusedRequest& lastRefusal() { return core_.lastRefusal_; }
    /// Which board leads: "brain" or "cerebellum".
    [[nodiscard]] std::string& masterRole() { return core_.masterRole_; }
    /// What the robot tells of itself.
    [[nodiscard]] std::string& version() { return core_.version_; }
    /// The platform's clock when the access began, ms.
    [[nodiscard]] std::uint64_t nowMs() const { return nowMs_; }
    /// Lets `seconds` pass for motion controller, motors and body. Doesn't allocate.
    void step(double seconds);
    /// A low-level client's record; see MotorControl::take. What it commands is done with the next
    /// step. Doesn't allocate.
    RecordFate take(const Robot::Motion::ShareLowLevelMotionCtrlData& record) {
      return core_.motors_.take(record, core_.body_->state(), nowMs_);
    }
    /// A command of a low-level client on another machine, which DDS knows as `writer`: carried
    /// out with the next step, or refused and counted. Doesn't allocate.
    RecordFate take(const msg::dds_::MotionCtrl_& sample, std::uint64_t writer);

   private:
    RobotCore& core_;
    std::unique_lock<Pexal::PBase::CMutex> lock_;
    std::uint64_t nowMs_;
  };

  RobotCore(std::unique_ptr<Body> body, std::shared_ptr<EventListener> listener);

  /// Waits for whoever has access now; an access lasts well under a millisecond.
  [[nodiscard]] Access access() { return Access(*this); }

 private:
  void settle();
  void settleSession();
  [[nodiscard]] RecordFate obstacleFor(std::uint64_t writer) const;
  void reportBattery();
  void reportAudio();

  Pexal::PBase::CMutex mutex_;  // the robot mutex: guards everything below
  const std::shared_ptr<EventListener> listener_;
  std::unique_ptr<Body> body_;
  Arbiter arbiter_;
  WorkModeSession session_;
  MotionController motion_;
  MotorControl motors_;
  WriterHold hold_;
  MediaRoom media_;
  RefusedRequest lastRefusal_;
  std::string masterRole_ = "cerebellum";
  std::string version_;
  std::uint64_t announcedRevision_ = 0;
  Posture announcedPosture_ = Posture::kLying;
  int announcedBatteryLevel_ = 0;  // 0 fine, 1 low, 2 empty
};

}  // namespace orvane::robot
