// The scripted faults of the virtual robot, on the virtual clock. One step per line:
//
//   <fault>            as on the command line or in a request's list
//   {...}              a request to the control service
//   ask <method>       a request to the robot by whoever was granted control last
//   pass <milliseconds>
//
// What is read prints as a line that reads the same. In the end "clear" makes it a good robot
// again.

#include <algorithm>
#include <memory>

#include "EventOutbox.h"
#include "FuzzSupport.h"
#include "RobotCore.h"
#include "body/KinematicBody.h"
#include "faults/FaultService.h"
#include "faults/Faults.h"

namespace {

using namespace orvane::robot;
using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RpcStatus;
using Pexal::Utils::jsonToString;

constexpr std::size_t kMostSteps = 64;
constexpr std::uint64_t kLongestPassMs = 700'000;

void checkText(const std::string& text) {
  const ParsedFault parsed = parseFault(text, &RequestServer::isMethod);
  if (const auto* const error = std::get_if<std::string>(&parsed)) {
    fuzz::require(!error->empty() && error->size() < 500, "an error is a short text", *error);
    fuzz::require(std::all_of(error->begin(), error->end(), [](char c) { return c >= ' '; }),
                  "an error can be shown", *error);
    return;
  }
  const auto& command = std::get<FaultCommand>(parsed);
  const std::string printed = textOf(command);
  const ParsedFault again = parseFault(printed, &RequestServer::isMethod);
  const auto* const same = std::get_if<FaultCommand>(&again);
  fuzz::require(same != nullptr && same->fault == command.fault && same->name == command.name &&
                    same->ms == command.ms && same->times == command.times &&
                    same->errorNumber == command.errorNumber && same->afterMs == 0,
                "what is read prints as a line that reads the same", printed);
}

class FuzzedRobot {
 public:
  FuzzedRobot() { fuzz::require(faults_->start(), "the timetable runs"); }
  FuzzedRobot(const FuzzedRobot&) = delete;
  FuzzedRobot& operator=(const FuzzedRobot&) = delete;
  ~FuzzedRobot() { faults_->stop(); }

  void play(std::string_view line) {
    std::string_view rest = line;
    const std::string_view verb = fuzz::takeUntil(rest, ' ');
    if (verb == "pass") {
      fuzz::virtualClock().advance(
          static_cast<std::uint32_t>(std::min(fuzz::numberOf(rest), kLongestPassMs)));
    } else if (verb == "ask") {
      static_cast<void>(ask(std::string(rest)));
    } else if (line.substr(0, 1) == "{") {
      request(line);
    } else {
      apply(std::string(line));
    }
  }

  void checkAlive() {
    fuzz::virtualClock().advance(0);
    fuzz::require(faults_->apply("clear").done, "faults can always be cleared");
    fuzz::require(faults_->apply("list").answers == std::vector<std::string>{"no faults"},
                  "clear clears all");
    controller_ = "anybody";  // nonsense may have named one that is none
    const RpcReply reply = ask("queryMotionState");
    fuzz::require(!reply.withheld && reply.document["result"] == Json::Value(true) &&
                      reply.document["params"]["posture"].isString(),
                  "a robot without faults answers", jsonToString(reply.document));
  }

 private:
  void apply(const std::string& text) {
    checkText(text);
    const auto outcome = faults_->apply(text);
    fuzz::require(outcome.done == outcome.error.empty() && outcome.done == !outcome.answers.empty(),
                  "a command is done, or there is a reason why not", outcome.error);
  }

  void request(std::string_view text) {
    RpcRequest request{FaultService::kService, FaultService::kApply, {}, false};
    if (!Pexal::Utils::stringToJson(text, request.document)) return;
    const RpcReply reply = service_.handle(request);
    fuzz::require(fuzz::isJson(jsonToString(reply.document)), "an answer can be sent");
    fuzz::require(reply.document["result"].asBool() == (reply.reason == 0) &&
                      reply.document["params"]["answers"].isArray(),
                  "an answer says what was done", jsonToString(reply.document));
  }

  RpcReply ask(const std::string& method) {
    RpcRequest request{RequestServer::kService, method, {}, false};
    request.document["call"]["clientId"] = controller_;
    RpcReply reply = faults_->requests().handle(request);
    fuzz::require(fuzz::isJson(jsonToString(reply.document)), "an answer can be sent");
    // Nonsense has any shape.
    if (!reply.document.isObject() || !reply.document["params"].isObject()) return reply;
    const Json::Value& controller = reply.document["params"]["controller"];
    if (controller.isString()) controller_ = controller.asString();
    return reply;
  }

  std::string controller_ = "app";
  std::shared_ptr<EventOutbox> outbox_ = std::make_shared<EventOutbox>("VR-7");
  std::shared_ptr<RobotCore> core_ =
      std::make_shared<RobotCore>(std::make_unique<KinematicBody>(), outbox_);
  std::shared_ptr<Faults> faults_ =
      std::make_shared<Faults>(core_, std::make_shared<RequestServer>(core_, "VR-7"));
  FaultService service_{faults_};
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return fuzz::startOnVirtualClock();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::playSteps<FuzzedRobot>(fuzz::textOf(data, size), kMostSteps);
}
