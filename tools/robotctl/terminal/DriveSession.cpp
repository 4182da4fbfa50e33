#include "terminal/DriveSession.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "core/Documents.h"
#include "core/Errors.h"
#include "core/Explanation.h"
#include "core/Failure.h"
#include "core/Text.h"
#include "terminal/Clock.h"

namespace robotctl {
namespace {

constexpr std::uint32_t kTransportError = 3;
constexpr std::uint32_t kRefusedError = 9;
constexpr std::uint64_t kPauseMs = 500;

struct Action {
  Key key;
  const char* name;
  const char* text;
  bool (Robot::Client::*call)(std::uint32_t);
};
constexpr std::array<Action, 3> kActions{
    {{U'u', "standing", "stands up", &Robot::Client::standing},
     {U'l', "laying", "lies down", &Robot::Client::laying},
     {U'r', "recoveryStand", "recovers and stands up", &Robot::Client::recoveryStand}}};

/// Caps Lock makes no difference.
Key lowered(Key key) {
  return key >= U'A' && key <= U'Z' ? key - U'A' + U'a' : key;
}

SpeedLimits::Range rangeFrom(const Json::Value& capabilities, const std::string& path,
                             SpeedLimits::Range otherwise) {
  const double least = numberAt(capabilities, path + ".min").value_or(1);
  const double most = numberAt(capabilities, path + ".max").value_or(-1);
  // Beyond this it's no walking robot, or no m/s.
  const bool usable = least <= 0 && most >= 0 && least >= -10 && most <= 10;
  return usable ? SpeedLimits::Range{static_cast<float>(least), static_cast<float>(most)}
                : otherwise;
}

/// Null when the robot doesn't tell.
Json::Value askState(Robot::Client& client) {
  std::string text;
  try {
    if (client.queryMotionState(&text, DriveSession::kAnswerMs)) {
      return parseObject(text, "the motion state");
    }
  } catch (const Failure&) {  // the code must do
  }
  return {};
}

/// It has just refused something to whoever controls it.
bool refusedNow(const Json::Value& state) {
  const std::string client = textAt(state, "lastRefusal.clientId");
  const double ageMs =
      numberAt(state, "timeMs").value_or(NAN) - numberAt(state, "lastRefusal.atMs").value_or(NAN);
  return !client.empty() && client == textAt(state, "control.controller") &&
         ageMs <= 2 * DriveSession::kAnswerMs;
}

}  // namespace

SpeedLimits limitsFrom(const Json::Value& capabilities) {
  const SpeedLimits otherwise;
  return {.forward = rangeFrom(capabilities, "walking.lineVelocityX", otherwise.forward),
          .left = rangeFrom(capabilities, "walking.lineVelocityY", otherwise.left),
          .turn = rangeFrom(capabilities, "walking.velocity", otherwise.turn)};
}

DriveSession::DriveSession(Robot& robot, RobotFeed& feed, SpeedLimits limits)
    : robot_(robot), feed_(feed), deadMan_(limits) {}

DriveSession::~DriveSession() {
  stop();
}

void DriveSession::press(Key key, bool late) {
  key = lowered(key);
  if (key == U'x' || key == kKeyEscape) {
    emergencyStop();
    return;
  }
  if (key == U' ') {
    if (walking_ && !stop()) return;
    feed_.note("drive", "stop");
    return;
  }
  if (late) return;
  if (key == U't' && (status_.hold == Hold::kLost || status_.hold == Hold::kTaking)) takeAgain();
  if (key == U'+' || key == U'=') deadMan_.faster();
  if (key == U'-' || key == U'_') deadMan_.slower();
  if (status_.hold != Hold::kDriving) return;
  const std::uint64_t now = monotonicMs();
  if (mayWalk(now) && deadMan_.press(key, now)) return;
  for (const Action& action : kActions) {
    if (action.key != key) continue;
    deadMan_.letGo();
    sent_ = {};
    if (attempt(action.name, [&](Robot::Client& client) {
          return (client.*action.call)(kAnswerMs);
        }) == Outcome::kAccepted) {
      walking_ = false;  // the robot brakes by itself before it changes its posture
      feed_.note("drive", std::string("the robot ") + action.text);
    }
  }
}

void DriveSession::tick(const RobotModel& model) {
  judge(model);
  if (status_.hold == Hold::kDriving) sendWalk(monotonicMs());
}

std::uint64_t DriveSession::deadlineMs() const {
  const std::uint64_t now = monotonicMs();
  const std::uint64_t letGo = deadMan_.deadlineMs(now);
  const std::uint64_t repeat = walking_ ? sentMs_ + kRepeatMs : now + kRepeatMs;
  return letGo == 0 ? repeat : std::min(letGo, repeat);
}

void DriveSession::judge(const RobotModel& model) {
  if (!robot_.inControl()) {
    judgeControl(model);
  } else if (model.silent()) {
    if (status_.hold == Hold::kSilent) return;
    lose(Hold::kSilent, "the robot has fallen silent");
    feed_.note("drive", status_.lost, true);
  } else if (status_.hold != Hold::kDriving) {
    if (status_.hold == Hold::kSilent) feed_.note("drive", "the robot is heard again");
    deadMan_.letGo();
    status_.hold = Hold::kDriving;
    status_.lost.clear();
  }
}

void DriveSession::judgeControl(const RobotModel& model) {
  const bool undecided = model.controlReports == reports_;
  if (status_.hold == Hold::kLost || (status_.hold == Hold::kTaking && undecided)) return;
  const std::uint32_t code = robot_.state().second;
  const char* why = code == 4   ? "its lease expired"
                    : code == 5 ? "revoked or taken by another"
                                : "not obtained";
  lose(Hold::kLost, format("control lost: %s (error %u)", why, code));
}

void DriveSession::lose(Hold hold, const std::string& why) {
  deadMan_.letGo();
  walking_ = false;
  sent_ = {};
  status_.hold = hold;
  status_.lost = why;
  feed_.askNow();
}

bool DriveSession::mayWalk(std::uint64_t nowMs) const {
  return nowMs >= pauseMs_;
}

void DriveSession::sendWalk(std::uint64_t nowMs) {
  const Velocity wanted = deadMan_.wanted(nowMs);
  if (wanted == Velocity{}) {
    if (walking_) stop();
    return;
  }
  if (wanted == sent_ && nowMs < sentMs_ + kRepeatMs) return;
  const bool before = walking_;
  walking_ = true;  // also a request that isn't answered may have begun something
  sent_ = wanted;
  sentMs_ = nowMs;
  const Outcome outcome = attempt("velocityMove", [&](Robot::Client& client) {
    return client.velocityMove(wanted.forward, wanted.left, wanted.turn, kAnswerMs);
  });
  if (outcome == Outcome::kAccepted) return;
  if (outcome == Outcome::kRefused) walking_ = before;
  // The key's repeats would be refused, too.
  deadMan_.letGo();
  sent_ = {};
  pauseMs_ = monotonicMs() + kPauseMs;
}

DriveStatus DriveSession::status() const {
  DriveStatus status = status_;
  status.velocity = sent_;
  status.speed = deadMan_.speed();
  status.limits = deadMan_.limits();
  return status;
}

bool DriveSession::stop() {
  deadMan_.letGo();
  sent_ = {};
  if (!walking_ || !robot_.inControl()) return true;
  walking_ = false;
  return attempt("stopMotionAction", [](Robot::Client& client) {
           return client.stopMotionAction(kAnswerMs);
         }) == Outcome::kAccepted;
}

void DriveSession::emergencyStop() {
  deadMan_.letGo();
  sent_ = {};
  const bool done = attempt("emergencyStopMotion", [](Robot::Client& client) {
                      return client.emergencyStopMotion(kAnswerMs);
                    }) == Outcome::kAccepted;
  if (done) {
    walking_ = false;
    feed_.askNow();
  }
  feed_.note("drive",
             done ? "emergency stop; r recovers" : "the emergency stop did NOT reach the robot",
             true);
}

void DriveSession::takeAgain() {
  reports_ = feed_.snapshot().controlReports;
  const bool asked = robot_.client().takeMotionControl(robot_.context().options.controlMs);
  if (!asked) {
    feed_.note("refused", "takeMotionControl: " + errorText(robot_.client().getLastError()), true);
    return;
  }
  status_.hold = Hold::kTaking;
  feed_.note("drive", "taking control ...");
}

DriveSession::Outcome DriveSession::attempt(const char* name, const Call& call) {
  Robot::Client& client = robot_.client();
  const std::uint64_t begun = monotonicMs();
  if (call(client)) return Outcome::kAccepted;
  FailedRequest failed{name, client.getLastError(), robot_.name(), "", monotonicMs() - begun, {}};
  // The feed's questions share the client's last error, so the code may be theirs: the clock tells
  // what wasn't answered, and the robot what it refused.
  if (failed.waitedMs >= kAnswerMs) {
    failed.code = kTransportError;
  } else {
    failed.motionState = askState(client);
    const bool doubtful = failed.code == 0 || failed.code == kTransportError;
    if (doubtful && refusedNow(failed.motionState)) failed.code = kRefusedError;
  }
  failed.code = std::max(failed.code, 1U);
  // The numbers on a line of their own: in 80 columns they would be cut off.
  const std::string why = explained(failed).what();
  const std::size_t numbers = std::min(why.find(" [error"), why.size());
  feed_.note("drive", why.substr(0, numbers), true);
  if (numbers < why.size()) feed_.note("drive", why.substr(numbers + 1), true);
  const std::string posture = textAt(failed.motionState, "posture");
  const bool still = !posture.empty() && posture != "walking" && posture != "stopping";
  return failed.code == kRefusedError && still ? Outcome::kRefused : Outcome::kFailed;
}

}  // namespace robotctl
