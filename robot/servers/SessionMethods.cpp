// Low-level sessions: who commands the motors one by one.

#include <iterator>
#include <string>
#include <utility>

#include "servers/Documents.h"
#include "servers/Methods.h"

namespace orvane::robot {
namespace {

constexpr std::size_t kLongestToken = 64;
constexpr const char* kWorkMode = "lowLevel";

/// Reads the one parameter that most methods have.
Checked<std::uint64_t> sessionOf(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"sessionId"});
  const std::uint64_t id = params.unsigned64("sessionId");
  if (params.failure()) return *params.failure();
  return id;
}

/// Why the motors can't go to a session now.
std::optional<Refusal> obstacle(RobotCore::Access& robot) {
  if (const auto& grant = robot.arbiter().current()) {
    return Refusal{Reason::kHeldByAnother,
                   "high-level control is held by " + grant->holder + " for another " +
                       std::to_string(grant->untilMs - robot.nowMs()) + " ms"};
  }
  if (robot.motion().emergencyStopped()) {
    return Refusal{Reason::kNotNow, "an emergency stop is latched; recoveryStand lifts it"};
  }
  return heldFromAfar(robot);
}

// The motion board leads as soon as nobody moves the robot by way of the other one: at the latest
// when the session is granted.
Answer setMasterRole(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({});
  if (params.failure()) return *params.failure();
  if (!call.robot.arbiter().current()) call.robot.masterRole() = "cerebellum";
  return Json::Value();
}

Answer takeSession(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"observedHz", "workMode", "shmMode", "takeToken", "leaseTimeout"});
  const auto observedHz = params.optionalUnsigned("observedHz");
  const auto leaseMs = params.optionalUnsigned("leaseTimeout");
  const bool sharedMemory = params.optionalBool("shmMode").value_or(true);
  const std::string workMode = params.text("workMode", kLongestToken);
  std::string token = params.text("takeToken", kLongestToken);
  if (params.failure()) return *params.failure();
  if (workMode != kWorkMode || !sharedMemory) {
    return Refusal{Reason::kNotAvailable, "params: workMode must be lowLevel, shmMode true"};
  }
  if (auto why = obstacle(call.robot)) return *std::move(why);
  auto taken = call.robot.session().take({call.clientId, std::move(token), observedHz, leaseMs},
                                         call.robot.nowMs());
  if (auto* refusal = std::get_if<Refusal>(&taken)) return std::move(*refusal);
  call.robot.masterRole() = "cerebellum";
  const WorkMode& session = std::get<WorkMode>(taken);
  Json::Value answer;
  answer["sessionId"] = Json::UInt64(session.id);
  answer["observedHz"] = session.observedHz;
  answer["leaseTimeout"] = session.leaseMs;
  return answer;
}

Answer renewSession(const Call& call) {
  auto id = sessionOf(call);
  if (auto* refusal = std::get_if<Refusal>(&id)) return std::move(*refusal);
  return doneOr(call.robot.session().renew(std::get<std::uint64_t>(id), call.robot.nowMs()));
}

Answer finish(const Call& call, WorkModeSession::End how) {
  auto id = sessionOf(call);
  if (auto* refusal = std::get_if<Refusal>(&id)) return std::move(*refusal);
  return doneOr(call.robot.session().finish(std::get<std::uint64_t>(id), how, call.robot.nowMs()));
}

Answer releaseSession(const Call& call) {
  return finish(call, WorkModeSession::End::kReleased);
}

Answer emergencyStop(const Call& call) {
  Answer answer = finish(call, WorkModeSession::End::kEmergencyStop);
  if (std::holds_alternative<Refusal>(answer)) return answer;
  return doneOr(call.robot.motion().start(Action::kEmergencyStop, {}, call.robot.nowMs()));
}

Answer setPrepare(const Call& call) {
  ObjectReader params(call.params, "params");
  params.onlyKeys({"sessionId", "enable"});
  const std::uint64_t id = params.unsigned64("sessionId");
  const auto enable = params.optionalBool("enable");
  if (params.failure()) return *params.failure();
  if (!enable) return Refusal{Reason::kInvalid, "params: enable is missing"};
  const std::uint64_t nowMs = call.robot.nowMs();
  if (auto refusal = call.robot.session().check(id, nowMs)) return *std::move(refusal);
  if (*enable) {
    if (auto why = obstacle(call.robot)) return *std::move(why);
  }
  auto ready = call.robot.session().prepare(id, *enable, call.robot.motion().settled(), nowMs);
  if (auto* refusal = std::get_if<Refusal>(&ready)) return std::move(*refusal);
  Json::Value answer;
  answer["ready"] = std::get<bool>(ready);
  return answer;
}

Answer motorLayout(const Call&) {
  return motorLayoutDocument();
}

constexpr Method kMethods[] = {
    {"setMotionMasterRole", false, setMasterRole},
    {"takeWorkModeSession", false, takeSession},
    {"renewWorkModeSession", false, renewSession},
    {"setMotionPrepare", false, setPrepare},
    {"releaseWorkModeSession", false, releaseSession},
    {"emergencyStop", false, emergencyStop},
    {"getMotorLayout", false, motorLayout},
};

}  // namespace

std::optional<Refusal> heldFromAfar(RobotCore::Access& robot) {
  if (!robot.hold().held()) return std::nullopt;
  return Refusal{Reason::kHeldByAnother,
                 "the motors follow a low-level client on another machine until " +
                     std::to_string(MotorControl::kSilenceMs) + " ms after its last command"};
}

Answer restoreMotionControlMode(const Call& call) {
  auto id = sessionOf(call);
  if (auto* refusal = std::get_if<Refusal>(&id)) return std::move(*refusal);
  return doneOr(
      call.robot.session().restoreMotion(std::get<std::uint64_t>(id), call.robot.nowMs()));
}

const Method* findSessionMethod(const std::string& name) {
  return findIn(std::begin(kMethods), std::end(kMethods), name);
}

}  // namespace orvane::robot
