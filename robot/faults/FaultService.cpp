#include "faults/FaultService.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "servers/Checks.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RpcStatus;

constexpr Json::ArrayIndex kMostCommands = 64;

std::optional<std::vector<std::string>> commandsOf(const Json::Value& document) {
  ObjectReader request(document, "request");
  const Json::Value& params = request.object("params");
  const Json::Value& list = params.isObject() ? params["commands"] : params;
  if (!list.isArray() || list.empty() || list.size() > kMostCommands) return std::nullopt;
  std::vector<std::string> commands;
  for (const Json::Value& command : list) {
    if (!command.isString()) return std::nullopt;
    commands.push_back(command.asString());
  }
  return commands;
}

}  // namespace

RpcReply FaultService::handle(const RpcRequest& request) const {
  RpcReply reply;
  if (request.service != kService || request.method != kApply) {
    reply.status = request.service == kService ? RpcStatus::kNoMethod : RpcStatus::kNoService;
    return reply;
  }
  const auto commands = commandsOf(request.document);
  const Faults::Outcome outcome =
      commands ? faults_->applyAll(*commands)
               : Faults::Outcome{false, {}, "params: commands must be a list of 1 to 64 texts"};
  reply.document["result"] = outcome.done;
  Json::Value& answers = reply.document["params"]["answers"] = Json::Value(Json::arrayValue);
  for (const std::string& answer : outcome.answers) answers.append(answer);
  if (!outcome.done) {
    reply.document["reason"] = outcome.error;
    reply.reason = static_cast<std::uint32_t>(Reason::kInvalid);
  }
  return reply;
}

}  // namespace orvane::robot
