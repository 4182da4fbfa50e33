#include "app/Tell.h"

#include <cstdio>

#include "Network.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/RPC.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RpcStatus;

int fail(const std::string& why) {
  std::fprintf(stderr, "virtual-robot tell: %s\n", why.c_str());
  return 1;
}

Json::Value clientDocument(const RobotSettings& robot) {
  Json::Value document = ddsDocument(robot.interface, robot.domain);
  Json::Value client;
  client["server"] = FaultService::kServer;
  client["domain"] = kHostDomain;
  document["client"].append(std::move(client));
  return document;
}

std::string transportFailure(const RobotSettings& robot, RpcStatus status) {
  const std::string who = "\"" + robot.deviceId + "\" on " + robot.interface + ", domain " +
                          std::to_string(robot.domain);
  if (status == RpcStatus::kNoServer) return "found no virtual robot " + who + " that runs";
  return "no answer from the virtual robot " + who + " (" +
         Pexal::PDBus::RPCServer::dumpCode(static_cast<std::uint32_t>(status)) + ")";
}

/// Whoever answers need not be a virtual robot: types are looked at first.
int show(const Json::Value& answer) {
  if (!answer.isObject() || !answer["result"].isBool() || !answer["params"].isObject() ||
      !answer["params"]["answers"].isArray()) {
    return fail("an answer without sense");
  }
  for (const Json::Value& text : answer["params"]["answers"]) {
    if (text.isString()) std::printf("%s\n", text.asCString());
  }
  if (answer["result"].asBool()) return 0;
  std::fflush(stdout);
  return fail(answer["reason"].isString() ? answer["reason"].asString() : "refused");
}

}  // namespace

int tell(const RobotSettings& robot, const std::vector<std::string>& commands,
         std::uint32_t timeoutMs) {
  if (const auto wrong = settingsError(robot.deviceId, robot.interface, robot.domain)) {
    return fail(*wrong);
  }
  const auto factory = IDDSFactory::create();
  if (!factory->initial(clientDocument(robot))) {
    return fail(joinFailure(robot.interface, robot.domain));
  }
  Json::Value request;
  for (const std::string& command : commands) request["params"]["commands"].append(command);
  Json::Value answer;
  const auto status =
      static_cast<RpcStatus>(factory->rpcClient(FaultService::kServer)
                                 ->call(FaultService::kService, FaultService::kApply, request,
                                        answer, timeoutMs, robot.deviceId));
  factory->shutdown();
  return status == RpcStatus::kOk ? show(answer) : fail(transportFailure(robot, status));
}

}  // namespace orvane::robot
