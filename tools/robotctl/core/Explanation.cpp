#include "core/Explanation.h"

#include <array>

#include "core/Documents.h"
#include "core/Errors.h"
#include "core/Text.h"

namespace robotctl {
namespace {

struct Verdict {
  std::uint32_t code;
  ExitCode exit;
  const char* hint;
};

constexpr const char* kHolderHint =
    "whoever holds control has to give it back, or its lease to run out; --control-timeout waits "
    "longer";

constexpr std::array<Verdict, 10> kVerdicts{{
    {1, ExitCode::kSetup,
     "--verbose shows the library's log; robotctl doctor looks at this machine"},
    {2, ExitCode::kNoControl, kHolderHint},
    {3, ExitCode::kNoAnswer,
     "is the robot on, and the network up? robotctl discover looks for it, --timeout waits longer. "
     "The request may have been carried out"},
    {4, ExitCode::kNoControl, "the network was down for longer than a renewal allows; try again"},
    {5, ExitCode::kNoControl, kHolderHint},
    {6, ExitCode::kRefused, ""},
    {7, ExitCode::kNoControl, kHolderHint},
    {8, ExitCode::kNoAnswer, "is the robot still on? robotctl status asks it"},
    {9, ExitCode::kRefused,
     "--verbose shows the library's log; robotctl info tells what the robot can do"},
    {10, ExitCode::kUsage, "the text has to be JSON"},
}};

constexpr std::uint32_t kOutOfRange = 34;

struct Cure {
  std::uint32_t reason;
  const char* hint;
};

constexpr std::array<Cure, 9> kCures{{
    {1, "control was lost meanwhile; robotctl status tells who has it"},
    {2, "robotctl audio list tells which there are"},
    {16, kHolderHint},
    {17, "delete the present one first: robotctl audio delete NAME"},
    {22, "robotctl info tells what the robot can do"},
    {28, "robotctl audio delete NAME makes room"},
    {29, kHolderHint},
    {kOutOfRange, "robotctl info tells the ranges"},
    {38, "robotctl info tells what the robot can do"},
}};

struct PostureCure {
  const char* posture;
  const char* hint;
};

/// For what isn't possible now.
constexpr std::array<PostureCure, 5> kPostureCures{{
    {"lying", "robotctl stand first"},
    {"emergencyStop", "robotctl recover lifts the emergency stop and stands up"},
    {"damped", "robotctl recover stands up from any pose"},
    {"fallen", "robotctl recover stands up from any pose"},
    {"lowLevel", "the motors are commanded one by one; that program has to end first"},
}};

bool isMedia(const std::string& request) {
  return request.find("Play") != std::string::npos || request.find("Audio") != std::string::npos;
}

/// The robot's last refusal when it was this program's; null otherwise. While the program holds
/// control the robot knows it by the grant.
const Json::Value& ownRefusal(const FailedRequest& failed) {
  const Json::Value& refusal = valueAt(failed.motionState, "lastRefusal");
  const std::string client = textAt(refusal, "clientId");
  const bool own = !client.empty() && (client == failed.program ||
                                       client == textAt(failed.motionState, "control.controller"));
  return own ? refusal : Json::Value::nullSingleton();
}

std::string cureFor(std::uint32_t reason, const FailedRequest& failed) {
  if (reason == kOutOfRange && failed.request == "velocityMove") {
    return "VX is lineVelocityX, VY lineVelocityY, WZ velocity; robotctl info tells the ranges";
  }
  if (reason == kOutOfRange && failed.request == "setCameraLightBrightness") {
    return "robotctl light set --help tells what it takes";
  }
  if (reason == 11 && isMedia(failed.request)) return "robotctl audio detail tells what is played";
  if (reason == 11) {
    const std::string posture = textAt(failed.motionState, "posture");
    for (const PostureCure& cure : kPostureCures) {
      if (posture == cure.posture) return cure.hint;
    }
  }
  for (const Cure& cure : kCures) {
    if (cure.reason == reason) return cure.hint;
  }
  return {};
}

Json::Value detailsOf(const FailedRequest& failed, const Json::Value& refusal) {
  Json::Value details;
  details["request"] = failed.request;
  details["robot"] = failed.robot;
  details["errorCode"] = failed.code;
  details["error"] = errorText(failed.code);
  if (refusal.isObject()) details["refusal"] = refusal;
  if (failed.motionState.isObject()) {
    details["posture"] = valueAt(failed.motionState, "posture");
    details["control"] = valueAt(failed.motionState, "control");
  }
  return details;
}

}  // namespace

std::string situation(const Json::Value& motionState) {
  if (!motionState.isObject()) return {};
  std::string text;
  if (const std::string posture = textAt(motionState, "posture"); !posture.empty()) {
    text = "posture " + posture + ", ";
  }
  const std::string holder = describeHolder(motionState);
  return text + (holder.empty() ? "nobody holds control" : "control held by " + holder);
}

Failure explained(const FailedRequest& failed) {
  Verdict verdict{failed.code, ExitCode::kRefused, ""};
  for (const Verdict& row : kVerdicts) {
    if (row.code == failed.code) verdict = row;
  }
  std::string text;
  std::string hint = verdict.hint;
  const Json::Value& refusal = ownRefusal(failed);
  const bool refused = failed.code == 9 || failed.code == 2;
  if (failed.code == 3) {
    text = failed.robot + " didn't answer " + failed.request + " (gave up after " +
           duration(failed.waitedMs) + "): " + errorText(failed.code);
  } else if (refused && refusal.isObject()) {
    const auto number = numberAt(refusal, "errno").value_or(0);
    const auto reason = number >= 0 && number < 1e6 ? static_cast<std::uint32_t>(number) : 0;
    text = failed.robot + " refused " + failed.request + ": " + textAt(refusal, "reason") + " [" +
           errorText(failed.code) + ", " + reasonText(reason) + "]";
    if (const std::string cure = cureFor(reason, failed); !cure.empty()) hint = cure;
  } else {
    text = failed.request + " failed on " + failed.robot + ": " + errorText(failed.code);
  }
  if (const std::string where = situation(failed.motionState); !where.empty()) text += "; " + where;
  return Failure(verdict.exit, text, hint).with(detailsOf(failed, refusal));
}

}  // namespace robotctl
