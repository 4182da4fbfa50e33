#include "app/Tell.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <utility>

#include "Board.h"
#include "Network.h"
#include "faults/FaultService.h"
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

/// How a running robot is reached.
struct Way {
  std::optional<std::string> obstacle;
  Json::Value document;  ///< with the domain
  const char* domain = nullptr;
  std::string deviceId;
  std::string robot;  ///< for people
  std::function<std::string()> joinFailure;
};

Way wayToBoard() {
  Way way;
  way.obstacle = noBoard();
  way.document["domain"].append(domainEntry(kBrain));
  way.domain = kBrain.name;
  way.robot = "on this board";
  way.joinFailure = [] {
    return std::string("can't join DDS with ") + kBrain.profile + " (the log says why)";
  };
  return way;
}

Way wayToHost(const RobotSettings& robot) {
  Way way;
  way.obstacle = settingsError(robot.deviceId, robot.interface, robot.domain);
  if (way.obstacle) return way;
  way.document = ddsDocument(robot.interface, robot.domain);
  way.domain = kHostDomain;
  way.deviceId = robot.deviceId;
  way.robot = "\"" + robot.deviceId + "\" on " + robot.interface + ", domain " +
              std::to_string(robot.domain);
  way.joinFailure = [robot] { return joinFailure(robot.interface, robot.domain); };
  return way;
}

std::string transportFailure(const std::string& robot, RpcStatus status) {
  if (status == RpcStatus::kNoServer) return "found no virtual robot " + robot + " that runs";
  return "no answer from the virtual robot " + robot + " (" +
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
  Way way = robot.serves(Deployment::kBoard) ? wayToBoard() : wayToHost(robot);
  if (way.obstacle) return fail(*way.obstacle);
  Json::Value client;
  client["server"] = FaultService::kServer;
  client["domain"] = way.domain;
  way.document["client"].append(std::move(client));
  const auto factory = IDDSFactory::create();
  if (!factory->initial(way.document)) return fail(way.joinFailure());
  Json::Value request;
  for (const std::string& command : commands) request["params"]["commands"].append(command);
  Json::Value answer;
  const auto status =
      static_cast<RpcStatus>(factory->rpcClient(FaultService::kServer)
                                 ->call(FaultService::kService, FaultService::kApply, request,
                                        answer, timeoutMs, way.deviceId));
  factory->shutdown();
  return status == RpcStatus::kOk ? show(answer) : fail(transportFailure(way.robot, status));
}

}  // namespace orvane::robot
